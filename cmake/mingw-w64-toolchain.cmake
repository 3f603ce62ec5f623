# Cross-builds for Windows x64 with Debian's MinGW-w64 (POSIX threads) and runs the results under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# As tools/toolchain.sh.
set(kTarget x86_64-w64-mingw32)
set(kThreads -posix)
if("$ENV{BREVANT_TOOLCHAIN}" STREQUAL "ucrt")
    set(kTarget x86_64-w64-mingw32ucrt)
    set(kThreads "")
endif()
set(CMAKE_C_COMPILER ${kTarget}-gcc${kThreads})
set(CMAKE_CXX_COMPILER ${kTarget}-g++${kThreads})
set(CMAKE_RC_COMPILER ${kTarget}-windres)

get_filename_component(BREVANT_ROOT "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)

# Headers and libraries come from the cross-built prefix (tools/setup.sh) and the compiler, never from the host.
set(CMAKE_FIND_ROOT_PATH "${BREVANT_ROOT}/build/deps" /usr/${kTarget})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Every test executable runs on its own throwaway machine.
set(CMAKE_CROSSCOMPILING_EMULATOR env "PYTHONPATH=${BREVANT_ROOT}/tools" python3 -B -m brevantlab.machine run)
