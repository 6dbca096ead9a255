# Installs the built library into WORK_DIR/prefix and builds and runs the consumer project
# in SOURCE_DIR against it. Any failing step fails the test.
file(REMOVE_RECURSE ${WORK_DIR})
function(run_step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer check failed at: ${ARGN}")
  endif()
endfunction()
run_step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
run_step(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
  "-DCMAKE_CXX_FLAGS=${CONSUMER_FLAGS}")
run_step(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run_step(${WORK_DIR}/build/consumer)
