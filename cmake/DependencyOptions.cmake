# Included by the build of each dependency (tools/setup.sh, CMAKE_PROJECT_INCLUDE): the compile flags of our own
# targets.
include(${CMAKE_CURRENT_LIST_DIR}/Hardening.cmake)
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
add_compile_definitions(${kPlatformDefinitions} _FORTIFY_SOURCE=2)
# The path of the unpacked sources must not be in the binaries.
add_compile_options(${kShippedCompileFlags} -ffile-prefix-map=${CMAKE_SOURCE_DIR}=${PROJECT_NAME}
    -ffile-prefix-map=${CMAKE_BINARY_DIR}=.)
add_link_options(${kShippedLinkFlags})
include(${CMAKE_CURRENT_LIST_DIR}/SplitSymbols.cmake)
