# brevant_system: the runtime of src/runtime and the import libraries of Windows. A program loads only the libraries
# that every run needs at its start, and heavy libraries at their first call.
#
# Functions used at every start are imported directly from the core of Windows, which every process has loaded anyway.
# advapi32 only forwards them and would load its own libraries.
set(kCoreImports
    "api-ms-win-core-registry-l1-1-0: RegCloseKey RegCreateKeyExW RegDeleteValueW RegEnumKeyExW RegEnumValueW
     RegFlushKey RegOpenKeyExW RegQueryValueExW RegSetValueExW"
    "api-ms-win-core-processthreads-l1-1-0: OpenProcessToken"
    "ntdll: NtOpenFile RtlNtStatusToDosError"
    "api-ms-win-security-base-l1-1-0: GetSidSubAuthority GetSidSubAuthorityCount GetTokenInformation")
# Functions of these are resolved at their first call, or all by LoadDelayedLibraries (src/runtime/DelayLoad.h). Not for
# functions with floating-point parameters: the linker's stubs do not preserve them.
set(kDelayedLibraries
    advapi32 bcrypt crypt32 ole32 oleaut32 rpcrt4 setupapi shell32 shlwapi user32 wtsapi32)

set(kImportDir ${PROJECT_BINARY_DIR}/imports)

# brevant_import_library(name dll functions option): creates libNAME.a, which imports the functions of DLL, if they
# change.
function(brevant_import_library name dll functions option)
    list(JOIN functions "\n" exports)
    set(definition "LIBRARY ${dll}.dll\nEXPORTS\n${exports}\n")
    set(old "")
    if(EXISTS ${kImportDir}/lib${name}.a AND EXISTS ${kImportDir}/${name}.def)
        file(READ ${kImportDir}/${name}.def old)
    endif()
    if(NOT old STREQUAL definition)
        file(WRITE ${kImportDir}/${name}.def "${definition}")
        execute_process(COMMAND ${CMAKE_DLLTOOL} --input-def ${name}.def ${option} lib${name}.a
                        WORKING_DIRECTORY ${kImportDir} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endfunction()

# brevant_delayed_library(name): delays every function in the toolchain's import library NAME.
function(brevant_delayed_library name)
    find_library(kLibrary_${name} ${name} REQUIRED)
    set(made ${kImportDir}/lib${name}_delayed.a)
    if(NOT EXISTS ${made} OR ${kLibrary_${name}} IS_NEWER_THAN ${made})
        execute_process(COMMAND ${CMAKE_NM} ${kLibrary_${name}} OUTPUT_VARIABLE symbols ERROR_QUIET
                        COMMAND_ERROR_IS_FATAL ANY)
        string(REGEX MATCHALL " I __imp_[A-Za-z0-9_]+" functions "${symbols}")
        list(TRANSFORM functions REPLACE " I __imp_" "")
        list(REMOVE_DUPLICATES functions)
        brevant_import_library(${name}_delayed ${name} "${functions}" --output-delaylib)
    endif()
    target_link_libraries(brevant_runtime INTERFACE ${made})
    # The linker's stubs use this name for the library.
    set(symbol __DELAY_IMPORT_DESCRIPTOR_lib${name}_delayed_a)
    string(APPEND kDelayDeclarations "extern const ImgDelayDescr ${symbol};\n")
    string(APPEND kDelayTable "    &${symbol},\n")
    set(kDelayDeclarations "${kDelayDeclarations}" PARENT_SCOPE)
    set(kDelayTable "${kDelayTable}" PARENT_SCOPE)
endfunction()

file(MAKE_DIRECTORY ${kImportDir})
add_library(brevant_system INTERFACE)
foreach(row IN LISTS kCoreImports)
    string(REGEX MATCHALL "[^: \n]+" words "${row}")
    list(POP_FRONT words dll)
    brevant_import_library(${dll} ${dll} "${words}" --output-lib)
    target_link_libraries(brevant_system INTERFACE ${kImportDir}/lib${dll}.a)
endforeach()

# Every program links the runtime. Its delay hook is linked by name, so that it replaces the empty hook of the
# toolchain's helper, which is linked later. The helper writes to a library's table, which newer linkers put into a
# read-only section; the hook writes the entry itself.
add_library(brevant_runtime STATIC src/runtime/DelayHook.cpp src/runtime/DelayLoad.cpp src/runtime/StackGuard.cpp)
target_link_libraries(brevant_runtime PRIVATE brevant_options)
# Each of its sources needs other macros for the same headers.
set_target_properties(brevant_runtime PROPERTIES UNITY_BUILD OFF)
target_link_options(brevant_runtime INTERFACE -Wl,-u,__pfnDliNotifyHook2)
foreach(name IN LISTS kDelayedLibraries)
    brevant_delayed_library(${name})
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/DelayedLibraries.h.in ${PROJECT_BINARY_DIR}/generated/DelayedLibraries.h)
target_link_libraries(brevant_system INTERFACE brevant_runtime uuid)
