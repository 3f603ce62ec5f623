# brevant_system: the runtime of src/runtime and the import libraries of Windows, so that a program maps at its start
# only what every run needs, and of a heavy library nothing before its first call.
#
# Functions that are called at every start come straight from the core of Windows, which every process has loaded
# anyway. advapi32, which hands them on to the core, would bring its own libraries along.
set(kCoreImports
    "api-ms-win-core-registry-l1-1-0: RegCloseKey RegCreateKeyExW RegDeleteValueW RegEnumKeyExW RegEnumValueW
     RegFlushKey RegOpenKeyExW RegQueryValueExW RegSetValueExW"
    "api-ms-win-core-processthreads-l1-1-0: OpenProcessToken"
    "api-ms-win-security-base-l1-1-0: GetSidSubAuthority GetSidSubAuthorityCount GetTokenInformation")
# Every function of these is loaded at its first call, by src/runtime/DelayLoad.cpp. Not for functions that take
# floating point numbers: the linker's stubs do not keep those.
set(kDelayedLibraries
    advapi32 bcrypt crypt32 ole32 oleaut32 rpcrt4 setupapi shell32 shlwapi user32 wtsapi32)

set(kImportDir ${PROJECT_BINARY_DIR}/imports)

# brevant_import_library(name dll functions option): libNAME.a that imports the functions of DLL; made when they change.
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

# brevant_delayed_library(name): delays every function that the toolchain's import library of that name has.
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
    target_link_libraries(brevant_system INTERFACE ${made})
endfunction()

file(MAKE_DIRECTORY ${kImportDir})
add_library(brevant_system INTERFACE)
foreach(row IN LISTS kCoreImports)
    string(REGEX MATCHALL "[^: \n]+" words "${row}")
    list(POP_FRONT words dll)
    brevant_import_library(${dll} ${dll} "${words}" --output-lib)
    target_link_libraries(brevant_system INTERFACE ${kImportDir}/lib${dll}.a)
endforeach()
foreach(name IN LISTS kDelayedLibraries)
    brevant_delayed_library(${name})
endforeach()

# Every program links the runtime, which takes the place of the compiler's.
add_library(brevant_runtime STATIC src/runtime/DelayLoad.cpp src/runtime/StackGuard.cpp)
target_link_libraries(brevant_runtime PRIVATE brevant_options)
target_link_libraries(brevant_system INTERFACE brevant_runtime uuid)
