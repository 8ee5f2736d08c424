# Run with -P: install, then build the consumer both ways and run it.
file(REMOVE_RECURSE ${WORK_DIR})
set(PREFIX ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(LAST_OUTPUT "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})

foreach(f lib/libtelvix.so.4 lib/libtelvix.so.4.5.6 lib/libLogbus.so.1 include/telvix/telvix.h
          lib/cmake/Telvix/TelvixConfig.cmake lib/cmake/Telvix/TelvixConfigVersion.cmake
          lib/pkgconfig/telvix.pc)
  if(NOT EXISTS ${PREFIX}/${f})
    message(FATAL_ERROR "installed package lacks ${f}")
  endif()
endforeach()

# CMake package
run(${CMAKE_COMMAND} -S ${CONSUMER_SRC} -B ${WORK_DIR}/cmake-build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${PREFIX})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${WORK_DIR}/cmake-build/telvix_consumer)
if(NOT LAST_OUTPUT MATCHES "4\\.5\\.6-r")
  message(FATAL_ERROR "consumer printed an unexpected version: ${LAST_OUTPUT}")
endif()

# pkg-config
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/lib/pkgconfig)
run(${PKG_CONFIG} --cflags --libs telvix)
string(STRIP "${LAST_OUTPUT}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(c++ -std=c++17 -fPIC ${CONSUMER_SRC}/main.cpp ${flags} -Wl,-rpath,${PREFIX}/lib
    -o ${WORK_DIR}/pkgconfig_consumer)
run(${WORK_DIR}/pkgconfig_consumer)
if(NOT LAST_OUTPUT MATCHES "4\\.5\\.6-r")
  message(FATAL_ERROR "pkg-config consumer printed an unexpected version: ${LAST_OUTPUT}")
endif()
