# Cross-build for 64-bit Windows with Debian's mingw-w64 compilers.
#
#   cmake -S . -B build-windows \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-x86_64.cmake \
#     -DOPENSSL_ROOT_DIR=<libcrypto built by scripts/build-openssl-mingw.sh>
#
# Test programs run through Wine (scripts/wine-run.sh).

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_triple x86_64-w64-mingw32)
# The posix thread model: the default win32 one lacks std::mutex and
# std::thread in this compiler release.
set(CMAKE_C_COMPILER ${_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${_triple}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${_triple})
# A libcrypto built outside the system root is searched too.
if(OPENSSL_ROOT_DIR)
  list(APPEND CMAKE_FIND_ROOT_PATH ${OPENSSL_ROOT_DIR})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler runtime and winpthread go into every binary, so that no
# runtime DLL has to be shipped beside the kit or copied for the tests.
set(_static "-static-libgcc -static-libstdc++ -Wl,-Bstatic,--whole-archive -lwinpthread -Wl,--no-whole-archive,-Bdynamic")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_static}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_static}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${_static}")

get_filename_component(_repo "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR ${_repo}/scripts/wine-run.sh)
