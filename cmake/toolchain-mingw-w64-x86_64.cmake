# Cross build for Windows x86-64 with Debian's mingw-w64 (posix thread
# flavour: its libstdc++ has std::thread). Everything is linked statically,
# so the programs import only Windows system DLLs. The libraries come from
# scripts/build-windows-deps.sh; XMLRPCS_WINDOWS_DEPS names its folder.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(XMLRPCS_MINGW_HOST x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${XMLRPCS_MINGW_HOST}-gcc-posix)
set(CMAKE_CXX_COMPILER ${XMLRPCS_MINGW_HOST}-g++-posix)
set(CMAKE_RC_COMPILER ${XMLRPCS_MINGW_HOST}-windres)

# The environment variable reaches the compiler checks too, which do not see
# the cache.
if(NOT XMLRPCS_WINDOWS_DEPS AND DEFINED ENV{XMLRPCS_WINDOWS_DEPS})
  set(XMLRPCS_WINDOWS_DEPS $ENV{XMLRPCS_WINDOWS_DEPS})
endif()
if(NOT XMLRPCS_WINDOWS_DEPS)
  set(XMLRPCS_WINDOWS_DEPS ${CMAKE_CURRENT_LIST_DIR}/../build-windows-deps)
endif()
set(XMLRPCS_WINDOWS_DEPS ${XMLRPCS_WINDOWS_DEPS} CACHE PATH "Folder of build-windows-deps.sh")
include(${XMLRPCS_WINDOWS_DEPS}/windows-deps.cmake)

set(CMAKE_FIND_ROOT_PATH /usr/${XMLRPCS_MINGW_HOST} ${XMLRPCS_WINDOWS_DEPS_PREFIXES})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Windows 10 is the oldest system the program supports (WSAPoll, the DNS
# service API); libxml2 is a static library here; localtime_r and gmtime_r
# are declared by mingw-w64 only for POSIX thread-safe functions.
set(XMLRPCS_WINDOWS_DEFINES "-D_WIN32_WINNT=0x0A00 -DWINVER=0x0A00 -DLIBXML_STATIC -D_POSIX_THREAD_SAFE_FUNCTIONS=200112L")
set(CMAKE_C_FLAGS_INIT "${XMLRPCS_WINDOWS_DEFINES}")
set(CMAKE_CXX_FLAGS_INIT "${XMLRPCS_WINDOWS_DEFINES}")
# No libgcc, libstdc++ or winpthread DLL beside the programs.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

set(Boost_USE_STATIC_LIBS ON)
set(Boost_NO_BOOST_CMAKE ON)
set(Boost_NO_WARN_NEW_VERSIONS ON)

# ctest runs the test programs through Wine (scripts/wine-run.sh prepares a
# private prefix for each run).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh)
