# Installs BUILD below WORK, moves the prefix (it must not know where it was), builds the project SOURCE with
# COMPILER against it, and runs the result and the installed program.

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/first)
file(RENAME ${WORK}/first ${WORK}/prefix)
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build -G ${GENERATOR}
  -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_CXX_COMPILER=${COMPILER})
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${WORK}/build/consumer)
if(EXISTS ${WORK}/prefix/bin/qorevpn)
  run(${WORK}/prefix/bin/qorevpn --help)
endif()
