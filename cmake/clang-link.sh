#!/usr/bin/env bash
# Starts a linker of the build with clang. GNU as, which made mingw-w64's C++ library, pads each section to its alignment, clang
# does not; so GNU ld says of each constant of the library that both have (the names, descriptions and tables of types, npos)
# that the duplicate "has different size". The bytes are the same up to there, and no option silences it: these lines alone are
# left out.
{ "$@" 2>&1 >&3 | grep -v 'libstdc++\.a(.*): duplicate section `\.rdata$_Z.* has different size$' >&2; } 3>&1
exit "${PIPESTATUS[0]}"
