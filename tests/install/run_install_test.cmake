# Driver of the install test (cmake -P): install; the README shows example.c
# as it is; the example builds and runs through find_package and pkg-config.
cmake_minimum_required(VERSION 3.20)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  string(STRIP "${out}" out)
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
file(READ ${SOURCE_DIR}/example.c example)
file(READ ${README} readme)
string(FIND "${readme}" "${example}```" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the C program in README.md differs from tests/install/example.c")
endif()

run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/consumer -B ${WORK_DIR}/consumer
    -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_PREFIX_PATH=${prefix} "-DCMAKE_C_FLAGS=${EXTRA_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${EXTRA_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${WORK_DIR}/consumer/example)

if(NOT PKG_CONFIG)
  message(STATUS "RZ_INSTALL_SKIPPED: pkg-config is not installed")
  return()
endif()
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
run(${PKG_CONFIG} --cflags --libs rzimg14n)
separate_arguments(flags UNIX_COMMAND "${EXTRA_FLAGS} ${run_output}")
run(${C_COMPILER} -std=c11 -Wall -Wextra -pedantic -Werror ${SOURCE_DIR}/example.c ${flags}
    -o ${WORK_DIR}/pc)
set(ENV{LD_LIBRARY_PATH} ${prefix}/lib)
run(${WORK_DIR}/pc)
