# The text of the build record in the library file. Every value can be set as a cache variable or in the environment;
# two builds with the same values give the same file. The time follows SOURCE_DATE_EPOCH.
function(epm_build_value name fallback)
    if(NOT DEFINED ${name})
        if(DEFINED ENV{${name}})
            set(${name} "$ENV{${name}}" PARENT_SCOPE)
        else()
            set(${name} "${fallback}" PARENT_SCOPE)
        endif()
    endif()
endfunction()

execute_process(COMMAND id -un OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND sh -c "echo $PPID" OUTPUT_VARIABLE pid OUTPUT_STRIP_TRAILING_WHITESPACE)
cmake_host_system_information(RESULT host QUERY HOSTNAME)
string(TIMESTAMP time "%a %b %d %H:%M:%S.000000000 %Y" UTC)
file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})

epm_build_value(EPM_BUILD_USER "${user}")
epm_build_value(EPM_BUILD_HOST "${host}")
epm_build_value(EPM_BUILD_PID "${pid}")
epm_build_value(EPM_BUILD_TIME "${time}")
epm_build_value(EPM_BUILD_COMMENT "${folder} ${CMAKE_SYSTEM_PROCESSOR}-${CMAKE_SYSTEM_NAME}")

set(EPM_BUILD_RECORD ${PROJECT_BINARY_DIR}/build_record.txt)
configure_file(${CMAKE_CURRENT_LIST_DIR}/build_record.txt.in ${EPM_BUILD_RECORD} @ONLY)
