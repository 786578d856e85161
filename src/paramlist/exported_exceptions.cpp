// SPDX-License-Identifier: MIT
// The two exception classes of the exported header stay part of the
// library's interface, type information included, so that an application
// may still catch them; nothing inside the library throws them any more.
#include <typeinfo>

#include "vxbus.h"

namespace vxbus {

// Referenced here so that the type information is emitted and exported.
extern const std::type_info& kNoDataExceptionType;
extern const std::type_info& kDataDamagedType;
const std::type_info& kNoDataExceptionType = typeid(NoDataExeption);
const std::type_info& kDataDamagedType = typeid(VXPARAMVALUE::DataDamaged);

}  // namespace vxbus
