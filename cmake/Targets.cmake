# The kinds of targets of this project. Each takes a folder and globs it, so that a new file needs no edit here;
# a folder without sources makes an empty target, or none, instead of an error.

# brevant_library(name folder dependency...): static library of the folder's sources, the entry point left out.
function(brevant_library name folder)
    file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    list(REMOVE_ITEM sources ${PROJECT_SOURCE_DIR}/src/agent/Brevant.cpp
                             ${PROJECT_SOURCE_DIR}/src/check/BrevantCheck.cpp)
    if(sources)
        add_library(${name} STATIC ${sources})
        target_link_libraries(${name} PUBLIC brevant_options ${ARGN})
    else()
        add_library(${name} INTERFACE)
        target_link_libraries(${name} INTERFACE brevant_options ${ARGN})
    endif()
endfunction()

# brevant_program(name library source resource): console program with a wide entry point.
function(brevant_program name library source resource)
    file(GLOB source CONFIGURE_DEPENDS ${source})
    if(NOT source)
        return()
    endif()
    add_executable(${name} ${source} ${resource})
    get_filename_component(folder ${resource} DIRECTORY)
    file(GLOB manifests CONFIGURE_DEPENDS ${folder}/*.manifest)
    set_source_files_properties(${resource} PROPERTIES OBJECT_DEPENDS "${manifests}")
    target_link_libraries(${name} PRIVATE ${library})
    target_link_options(${name} PRIVATE -municode -mconsole)
endfunction()

# brevant_dll(name folder output-folder): NAME.dll without the "lib" prefix. Its objects are the target
# NAME_objects, for tests that reach inside.
function(brevant_dll name folder output)
    file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    file(GLOB extras CONFIGURE_DEPENDS ${folder}/*.def ${folder}/*.rc)
    if(NOT sources)
        return()
    endif()
    get_filename_component(target ${name} NAME)
    add_library(${target}_objects OBJECT ${sources})
    target_link_libraries(${target}_objects PUBLIC brevant_options)
    add_library(${target} SHARED $<TARGET_OBJECTS:${target}_objects> ${extras})
    target_link_libraries(${target} PRIVATE brevant_options brevant_system)
    set_target_properties(${target} PROPERTIES PREFIX "" LINKER_LANGUAGE CXX RUNTIME_OUTPUT_DIRECTORY ${output})
endfunction()

# brevant_unit_tests(library): the executable LIBRARY_tests of tests/unit/LIBRARY.
function(brevant_unit_tests library)
    file(GLOB sources CONFIGURE_DEPENDS tests/unit/${library}/*.cpp)
    if(NOT sources)
        return()
    endif()
    set(name ${library}_tests)
    add_executable(${name} ${sources})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${kTestDir})
    if(library STREQUAL "kzdbg")
        target_link_libraries(${name} PRIVATE $<TARGET_NAME_IF_EXISTS:KzDbg64_objects>)
    else()
        target_link_libraries(${name} PRIVATE ${library})
    endif()
    target_link_libraries(${name} PRIVATE test_support GTest::gmock GTest::gtest_main)
    add_test(NAME unit.${library} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(unit.${library} PROPERTIES TIMEOUT 300)
endfunction()

# brevant_standins(folder): each sub-folder is one recording DLL of that name, in bin/standins.
function(brevant_standins folder)
    file(GLOB names CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/${folder} ${folder}/*)
    foreach(name IN LISTS names)
        if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/${name})
            # Target names must not hide the system library of the same name.
            brevant_dll(standin_${name} ${folder}/${name} ${kBinDir}/standins)
            if(TARGET standin_${name})
                set_target_properties(standin_${name} PROPERTIES OUTPUT_NAME ${name}
                    ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/standins)
            endif()
        endif()
    endforeach()
endfunction()

# brevant_hostile_tests(folder samples): the executable hostile_tests, run once for each kind of input.
function(brevant_hostile_tests folder samples)
    file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    add_executable(hostile_tests ${sources})
    set_target_properties(hostile_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${kTestDir})
    target_link_libraries(hostile_tests PRIVATE agent test_support GTest::gmock GTest::gtest)
    foreach(kind InstructionFiles StringTables ShortcutFiles ConfigurationFiles UpdateInformation Placeholders)
        add_test(NAME hostile.${kind}
            COMMAND hostile_tests --gtest_brief=1 --gtest_filter=*.${kind} ${PROJECT_SOURCE_DIR}/${samples})
        set_tests_properties(hostile.${kind} PROPERTIES TIMEOUT 300)
    endforeach()
endfunction()

# brevant_platform_trial(folder): WindowsTrial.exe, run at once; what needs a restart is a system test's.
function(brevant_platform_trial folder)
    file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    add_executable(WindowsTrial ${sources})
    set_target_properties(WindowsTrial PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${kTestDir})
    target_link_libraries(WindowsTrial PRIVATE common)
    target_link_options(WindowsTrial PRIVATE -municode -mconsole)
    add_test(NAME platform.now COMMAND WindowsTrial --now)
    set_tests_properties(platform.now PROPERTIES TIMEOUT 120)
endfunction()

# brevant_system_tests(folder): each test_NAME.py runs as system.NAME against this build's programs.
function(brevant_system_tests folder)
    file(GLOB modules CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/${folder} ${folder}/test_*.py)
    foreach(file IN LISTS modules)
        string(REGEX REPLACE "\\.py$" "" module ${file})
        string(REGEX REPLACE "^test_" "" name ${module})
        add_test(NAME system.${name}
            COMMAND ${Python3_EXECUTABLE} -B -m unittest -v ${module}
            WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/${folder})
        set_tests_properties(system.${name} PROPERTIES TIMEOUT 600 ENVIRONMENT
            "BREVANT_BIN=${kBinDir};PYTHONPATH=${PROJECT_SOURCE_DIR}/tools/machine")
    endforeach()
endfunction()
