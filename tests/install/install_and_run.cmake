# cmake -P script run by the install test; the variables come from tests/install/CMakeLists.txt.
cmake_minimum_required(VERSION 3.25)

function(run what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "${what} failed (${rc}):\n${out}")
    endif()
    message(STATUS "${what}: ok")
endfunction()

file(REMOVE_RECURSE ${PREFIX} ${CONSUMER_BINARY_DIR})

run("install" ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${PREFIX})

run("configure consumer" ${CMAKE_COMMAND}
    -S ${CONSUMER_SOURCE_DIR} -B ${CONSUMER_BINARY_DIR} -G ${GENERATOR}
    -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    -DCMAKE_CXX_FLAGS=${CXX_FLAGS}
    -DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}
    -DCMAKE_PREFIX_PATH=${PREFIX}
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
    -DKAPPAR_EXPECTED_PREFIX=${PREFIX})

run("build consumer" ${CMAKE_COMMAND} --build ${CONSUMER_BINARY_DIR} --parallel 2)

run("run consumer" ${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${PREFIX}/${LIBDIR}"
    ${CONSUMER_BINARY_DIR}/kappar_consumer)
