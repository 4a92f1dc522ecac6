# Checks the drop-in folder for game projects: the library where the engine looks for it, the C# binding
# beside it, and a dynamic symbol table of exactly the 35 exports (also when the C++ runtime is linked in).
#   -DFOLDER=<folder> -DEXPORTS_MAP=<cmake/exports.map> -DNM=<nm> -DREADELF=<readelf> -DSTATIC_RUNTIME=<ON|OFF>
# With -DLIBRARY=<.so> instead of -DFOLDER, checks only that library's symbols and dependencies.
cmake_minimum_required(VERSION 3.25)

if(LIBRARY)
  set(library ${LIBRARY})
else()
  set(library ${FOLDER}/Assets/Plugins/x86_64/libQuorlBridge.so)
  foreach(file ${library} ${FOLDER}/Assets/Plugins/QuorlBridge/QuorlNative.cs
          ${FOLDER}/Assets/Plugins/QuorlBridge/QuorlBridge.cs ${FOLDER}/Assets/Plugins/QuorlBridge/AotCallbackAttribute.cs)
    if(NOT EXISTS ${file})
      message(FATAL_ERROR "missing from the drop-in folder: ${file}")
    endif()
  endforeach()
endif()

file(READ ${EXPORTS_MAP} map)
string(REGEX REPLACE ".*global:(.*)local:.*" "\\1" map "${map}")
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" expected "${map}")
list(SORT expected)

execute_process(COMMAND ${NM} -D --defined-only --format=posix ${library} OUTPUT_VARIABLE symbols RESULT_VARIABLE nm_result)
if(NOT nm_result EQUAL 0)
  message(FATAL_ERROR "${NM} could not read ${library}")
endif()
string(REGEX MATCHALL "(^|\n)[A-Za-z_][A-Za-z0-9_@.]* [A-Za-z]" lines "${symbols}")
set(defined "")
foreach(line IN LISTS lines)
  string(STRIP "${line}" line)
  string(REGEX REPLACE " [A-Za-z]$" "" name "${line}")
  list(APPEND defined ${name})
endforeach()
list(SORT defined)
list(LENGTH expected expected_count)
if(NOT expected_count EQUAL 35 OR NOT "${defined}" STREQUAL "${expected}")
  message(FATAL_ERROR "libQuorlBridge.so defines [${defined}]\nexpected the ${expected_count} exports [${expected}]")
endif()
message(STATUS "the shipped library defines exactly the ${expected_count} exports")

execute_process(COMMAND ${READELF} -d ${library} OUTPUT_VARIABLE dynamic)
string(REGEX MATCHALL "Shared library: \\[[^]]+\\]" needed "${dynamic}")
message(STATUS "needed: ${needed}")
if(STATIC_RUNTIME AND "${needed}" MATCHES "libstdc\\+\\+|libgcc_s")
  message(FATAL_ERROR "QUORL_STATIC_CXX_RUNTIME is on, but the library still needs ${needed}")
endif()
