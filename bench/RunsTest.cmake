# Fails unless the benchmarks of PROGRAM that FILTER takes are COUNT, and none of them reports an error.
execute_process(COMMAND ${PROGRAM} --benchmark_filter=${FILTER} --benchmark_format=json
                RESULT_VARIABLE status OUTPUT_VARIABLE report ERROR_VARIABLE said)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "it ended with ${status}:\n${report}\n${said}")
endif()
string(JSON ran LENGTH "${report}" benchmarks)
string(FIND "${report}" "\"error_occurred\": true" wrong)
if(NOT ran EQUAL COUNT OR NOT wrong EQUAL -1)
  message(FATAL_ERROR "${ran} ran of ${COUNT}:\n${report}")
endif()
