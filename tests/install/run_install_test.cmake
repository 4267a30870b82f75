# Driver of the install test (cmake -P): install, then build and run the
# example through pkg-config and through find_package.
cmake_minimum_required(VERSION 3.20)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " cmd "${ARGN}")
    message(FATAL_ERROR "failed (${rc}): ${cmd}\n${out}\n${err}")
  endif()
  string(STRIP "${out}" out)
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(f include/rzkrn.h include/rzdis.h include/rzimg.h include/rzimg_ops.h lib/pkgconfig/rzimg14n.pc
          lib/cmake/rzimg14n/rzimg14nConfig.cmake lib/cmake/rzimg14n/rzimg14nConfigVersion.cmake)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()

# The installed tool finds the libraries through its run path alone.
if(EXISTS ${prefix}/bin/rzimg)
  run(${prefix}/bin/rzimg list)
endif()

# The README shows example.c; keep the two the same.
file(READ ${SOURCE_DIR}/example.c example)
file(READ ${README} readme)
string(FIND "${readme}" "${example}```" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the C program in README.md differs from tests/install/example.c")
endif()

separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")

# (b) find_package from a separate project; CMake links with a run path.
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/consumer -B ${WORK_DIR}/consumer
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_C_FLAGS=${EXTRA_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${EXTRA_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${WORK_DIR}/consumer/example)
message(STATUS "find_package: ${run_output}")

# (a) pkg-config, the way a Makefile would; the libraries are found at run
# time through LD_LIBRARY_PATH.
if(NOT PKG_CONFIG)
  message(STATUS "RZ_INSTALL_SKIPPED: pkg-config is not installed")
  return()
endif()
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
run(${PKG_CONFIG} --cflags --libs rzimg14n)
separate_arguments(pc_flags UNIX_COMMAND "${run_output}")
run(${C_COMPILER} -std=c11 -Wall -Wextra -pedantic -Werror ${extra} ${SOURCE_DIR}/example.c ${pc_flags}
    -o ${WORK_DIR}/example_pc)
set(ENV{LD_LIBRARY_PATH} ${prefix}/lib)
run(${WORK_DIR}/example_pc)
message(STATUS "pkg-config: ${run_output}")
