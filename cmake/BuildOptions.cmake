# brevant_options: the compile and link options of every target in this project.
add_library(brevant_options INTERFACE)

include(${CMAKE_CURRENT_LIST_DIR}/Hardening.cmake)
option(BREVANT_CHECKED "Check library preconditions and undefined behaviour at run time" OFF)

set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
target_compile_features(brevant_options INTERFACE cxx_std_20)
configure_file(${PROJECT_SOURCE_DIR}/cmake/BrevantVersion.h.in ${PROJECT_BINARY_DIR}/generated/BrevantVersion.h)
target_include_directories(brevant_options INTERFACE ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/generated)

target_compile_definitions(brevant_options INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN STRICT
    ${kPlatformDefinitions})

# -- warnings --
option(CMAKE_COMPILE_WARNING_AS_ERROR "Every warning is an error" ON)
target_compile_options(brevant_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:
    -Wall -Wextra -Wpedantic
    -Wconversion -Wshadow -Wcast-qual -Wformat=2 -Wno-format-nonliteral -Wundef
    -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wredundant-decls
    -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wimplicit-fallthrough
    -Wold-style-cast -Wzero-as-null-pointer-constant>)

# Traces, exceptions and symbols contain source paths relative to the project, not those of the build machine.
target_compile_options(brevant_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}=.)

# -- hardening and self-contained binaries --
target_compile_options(brevant_options INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:${kShippedCompileFlags}>")
target_link_options(brevant_options INTERFACE ${kShippedLinkFlags} -Wl,--fatal-warnings
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-Wl,--tsaware>)

if(CMAKE_UNITY_BUILD)
    # Unity builds combine sources, so fixtures in unnamed namespaces look as if they were in a header.
    target_compile_options(brevant_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
endif()

if(BREVANT_CHECKED)
    # This platform has no run-time library for the sanitizer: a fault ends the process with a trap.
    target_compile_definitions(brevant_options INTERFACE _GLIBCXX_ASSERTIONS)
    target_compile_options(brevant_options INTERFACE
        $<$<COMPILE_LANGUAGE:CXX>:
        -Og -Wno-maybe-uninitialized
        $<$<NOT:$<BOOL:$<TARGET_PROPERTY:BREVANT_TESTS_ONLY>>>:-fsanitize=undefined -fsanitize-undefined-trap-on-error>>)
elseif(CMAKE_BUILD_TYPE STREQUAL Release)
    target_compile_definitions(brevant_options INTERFACE _FORTIFY_SOURCE=2)
    include(${CMAKE_CURRENT_LIST_DIR}/SplitSymbols.cmake)
endif()

# brevant_precompile(target owner header...): compiles the headers that most sources include once, in the target
# "owner", for all targets with its options. Only the checked build does: a clean one takes a quarter less. The others
# show whether each source includes what it uses.
function(brevant_precompile target owner)
    if(NOT BREVANT_CHECKED)
        return()
    endif()
    # The first is for ccache. The warnings are for what the libraries' own headers do: GCC does not know precompiled
    # ones as the system's. The other builds warn.
    target_compile_options(${target} PRIVATE -fpch-preprocess -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
    if(target STREQUAL owner)
        target_precompile_headers(${target} PRIVATE ${kUsualHeaders} ${ARGN})
    else()
        target_precompile_headers(${target} REUSE_FROM ${owner})
    endif()
endfunction()
set(kUsualHeaders <windows.h> <algorithm> <array> <cstring> <cwchar> <functional> <iterator> <map> <memory> <optional>
    <set> <span> <string> <string_view> <utility> <variant> <vector>)
