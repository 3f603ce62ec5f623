# brevant_options: what every target of this project is compiled and linked with.
add_library(brevant_options INTERFACE)

option(BREVANT_CHECKED "Check library preconditions and undefined behaviour at run time" OFF)

set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
target_compile_features(brevant_options INTERFACE cxx_std_20)
configure_file(${PROJECT_SOURCE_DIR}/cmake/BrevantVersion.h.in ${PROJECT_BINARY_DIR}/generated/BrevantVersion.h)
target_include_directories(brevant_options INTERFACE ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/generated)

target_compile_definitions(brevant_options INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN STRICT
    _WIN32_WINNT=0x0A00 WINVER=0x0A00)

# -- warnings --
option(CMAKE_COMPILE_WARNING_AS_ERROR "Every warning is an error" ON)
target_compile_options(brevant_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:
    -Wall -Wextra -Wpedantic
    -Wconversion -Wshadow -Wcast-qual -Wformat=2 -Wno-format-nonliteral -Wundef
    -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wredundant-decls
    -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wimplicit-fallthrough
    -Wold-style-cast -Wzero-as-null-pointer-constant>)

# Traces and exceptions name source files: by their path in the project, not on the machine that built them.
target_compile_options(brevant_options INTERFACE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

# -- hardening and self-contained binaries --
target_compile_options(brevant_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fstack-protector-strong -ffunction-sections -fdata-sections>)
target_link_options(brevant_options INTERFACE
    -static -fstack-protector-strong
    -Wl,--dynamicbase,--nxcompat,--high-entropy-va,--gc-sections,--fatal-warnings
    # Windows 10 and later: an older one refuses the image instead of failing somewhere inside.
    -Wl,--major-os-version,10,--minor-os-version,0,--major-subsystem-version,10,--minor-subsystem-version,0
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-Wl,--tsaware>)

if(BREVANT_CHECKED)
    # This platform has no run-time library for the sanitizer: a fault ends the process by a trap.
    target_compile_definitions(brevant_options INTERFACE _GLIBCXX_ASSERTIONS)
    target_compile_options(brevant_options INTERFACE
        $<$<COMPILE_LANGUAGE:CXX>:
        -O1 -g1 -fsanitize=undefined -fsanitize-undefined-trap-on-error -Wno-maybe-uninitialized>)
else()
    target_compile_definitions(brevant_options INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
    target_link_options(brevant_options INTERFACE $<$<CONFIG:Release>:-s>)
endif()
