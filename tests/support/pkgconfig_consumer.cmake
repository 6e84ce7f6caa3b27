# Installs the built library into a scratch prefix, then compiles and runs the
# consumer program with the flags of `pkg-config --cflags --libs kevra` only.
# Variables: KEVRA_BINARY_DIR, CONSUMER_SOURCE, WORK_DIR, CXX_COMPILER, CXX_FLAGS, PKG_CONFIG, and
# for a cross build EMULATOR (the program then runs under it).
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

function(run out_var)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err
    OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(${out_var} "${out}" PARENT_SCOPE)
endfunction()

run(ignored "${CMAKE_COMMAND}" --install "${KEVRA_BINARY_DIR}" --prefix "${WORK_DIR}/prefix"
    --component kevra_development)
file(GLOB_RECURSE pc_files "${WORK_DIR}/prefix/*/kevra.pc")
list(LENGTH pc_files n)
if(NOT n EQUAL 1)
  message(FATAL_ERROR "expected one installed kevra.pc, found: ${pc_files}")
endif()
get_filename_component(pc_dir "${pc_files}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
set(ENV{PKG_CONFIG_LIBDIR} "${pc_dir}")
run(flags "${PKG_CONFIG}" --cflags --libs kevra)
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(extra UNIX_COMMAND "${CXX_FLAGS}")
run(ignored "${CXX_COMPILER}" ${extra} "${CONSUMER_SOURCE}" -o "${WORK_DIR}/consumer" ${flags})
# A shared library outside the loader's paths is found the way a user would point at it.
run(libdir "${PKG_CONFIG}" --variable=libdir kevra)
run(ignored "${CMAKE_COMMAND}" -E env "LD_LIBRARY_PATH=${libdir}" ${EMULATOR} "${WORK_DIR}/consumer")
file(REMOVE_RECURSE "${WORK_DIR}")
