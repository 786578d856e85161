# One switch for the sanitizer builds that every change touching threads must pass.
if(VXBUS_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(VXBUS_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT VXBUS_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VXBUS_SANITIZE must be empty, 'address' or 'thread'")
endif()
