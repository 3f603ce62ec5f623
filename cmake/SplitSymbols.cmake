# Strips every program and DLL after linking. The symbols go to NAME.debug beside it, which the stripped file references
# with a debug link, for debuggers and tools/symbolise.sh. SOURCE_DATE_EPOCH, if set, is the time in all headers.
foreach(rule CMAKE_C_CREATE_SHARED_LIBRARY CMAKE_CXX_CREATE_SHARED_LIBRARY CMAKE_CXX_LINK_EXECUTABLE)
    list(APPEND ${rule}
        "\"${CMAKE_OBJCOPY}\" --only-keep-debug <TARGET> <TARGET>.debug"
        "\"${CMAKE_STRIP}\" --strip-all <TARGET>"
        "\"${CMAKE_OBJCOPY}\" --add-gnu-debuglink=<TARGET>.debug <TARGET>")
endforeach()
