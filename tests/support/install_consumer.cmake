# Installs the built library into a scratch prefix, then configures, builds and
# runs a small program that finds it with find_package(Kevra CONFIG).
# Variables: KEVRA_BINARY_DIR, CONSUMER_SOURCE_DIR, WORK_DIR, CXX_COMPILER, CXX_FLAGS, and for a
# cross build TOOLCHAIN_FILE and EMULATOR (the program then runs under the emulator).
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

run("${CMAKE_COMMAND}" --install "${KEVRA_BINARY_DIR}" --prefix "${WORK_DIR}/prefix" --component kevra_development)
# A cross toolchain searches packages only under its sysroot: name the package's directory.
file(GLOB_RECURSE config "${WORK_DIR}/prefix/*/KevraConfig.cmake")
get_filename_component(config_dir "${config}" DIRECTORY)
run("${CMAKE_COMMAND}" -S "${CONSUMER_SOURCE_DIR}" -B "${WORK_DIR}/build"
    "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix"
    "-DKevra_DIR=${config_dir}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${CXX_FLAGS}"
    "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE}")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/build")
run(${EMULATOR} "${WORK_DIR}/build/consumer")
file(REMOVE_RECURSE "${WORK_DIR}")
