# Every program and DLL is stripped right after it was linked. Its symbols stand beside it in NAME.debug, which the
# stripped file names by a debug link, for debuggers and tools/symbolise.sh. SOURCE_DATE_EPOCH, when it is set, is the
# time in the header of all of them.
foreach(rule CMAKE_C_CREATE_SHARED_LIBRARY CMAKE_CXX_CREATE_SHARED_LIBRARY CMAKE_CXX_LINK_EXECUTABLE)
    list(APPEND ${rule}
        "\"${CMAKE_OBJCOPY}\" --only-keep-debug <TARGET> <TARGET>.debug"
        "\"${CMAKE_STRIP}\" --strip-all <TARGET>"
        "\"${CMAKE_OBJCOPY}\" --add-gnu-debuglink=<TARGET>.debug <TARGET>")
endforeach()
