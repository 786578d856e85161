# SPDX-License-Identifier: MIT
"""The binding's version: pip reads it from here, and CMake checks that it
is the project's."""

__version__ = "0.1.0"
