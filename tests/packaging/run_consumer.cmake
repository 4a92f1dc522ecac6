# Builds the consumer project against an installed tree and runs it, then builds the core-only program
# with the flags pkg-config gives and runs that.
#   -DPREFIX=<installed tree> -DSOURCE=<consumer sources> -DBINARY=<scratch dir>
#   -DCXX=<compiler> [-DFLAGS=<extra compile and link flags, e.g. sanitizers>] [-DPKG_CONFIG=<pkg-config>]
cmake_minimum_required(VERSION 3.18)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  message("${output}${errors}")
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "failed (${result}): ${command}")
  endif()
endfunction()

file(REMOVE_RECURSE ${BINARY})
file(MAKE_DIRECTORY ${BINARY})

# Every installed header on its own line, so the consumer compiles each one.
file(GLOB_RECURSE headers RELATIVE ${PREFIX}/include/quorl ${PREFIX}/include/quorl/*.h)
list(LENGTH headers header_count)
if(header_count LESS 5)
  message(FATAL_ERROR "only ${header_count} headers under ${PREFIX}/include/quorl")
endif()
set(includes "")
foreach(header IN LISTS headers)
  string(APPEND includes "#include \"${header}\"\n")
endforeach()
file(WRITE ${BINARY}/all_headers.cpp "${includes}")

run(${CMAKE_COMMAND} -S ${SOURCE} -B ${BINARY}/cmake -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
    "-DCMAKE_CXX_FLAGS=${FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}"
    -DALL_HEADERS_SOURCE=${BINARY}/all_headers.cpp -DEXPECTED_PREFIX=${PREFIX}/)
run(${CMAKE_COMMAND} --build ${BINARY}/cmake)
run(${BINARY}/cmake/consumer)

if(NOT PKG_CONFIG)
  find_program(PKG_CONFIG pkg-config REQUIRED)
endif()
file(GLOB_RECURSE pc_files ${PREFIX}/*/quorlbridge.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} ${PKG_CONFIG} --cflags --libs quorlbridge
  OUTPUT_VARIABLE pc_flags RESULT_VARIABLE pc_result OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT pc_result EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know quorlbridge in ${pc_dir}")
endif()
message("pkg-config --cflags --libs quorlbridge: ${pc_flags}")
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
separate_arguments(extra_flags UNIX_COMMAND "${FLAGS}")
run(${CXX} -std=c++17 ${extra_flags} ${SOURCE}/core_only.cpp ${pc_flags} -o ${BINARY}/core_only)
run(${BINARY}/core_only)
