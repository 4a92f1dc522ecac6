# Packaging of libQuorlBridge:
#   - install rules for the shipped library, the core layer and their headers (under include/quorl/), a
#     CMake package config (find_package(QuorlBridge) gives QuorlBridge::QuorlBridge and QuorlBridge::core)
#     and a pkg-config file for C++ users of the core layer;
#   - QUORL_STATIC_CXX_RUNTIME, which links the C++ runtime into libQuorlBridge.so so that one file runs
#     on many distributions (the version script keeps the dynamic symbol table to the 35 exports);
#   - the drop-in folder for game projects, the install component "unity":
#       cmake --install <build> --component unity --prefix <folder>
#     gives <folder>/Assets/Plugins/x86_64/libQuorlBridge.so beside the C# binding in
#     <folder>/Assets/Plugins/QuorlBridge/, and prints the lowest GLIBC_ and GLIBCXX_ versions that the
#     shipped library needs. The target quorl_unity_folder does the same into <build>/unity.
#
# Included by the top-level CMakeLists.txt after all targets. Run as a script (cmake -P) it is the
# version report itself: -DQUORL_REPORT_LIBRARY=<.so> [-DQUORL_READELF=<readelf>].

if(CMAKE_SCRIPT_MODE_FILE)
  if(NOT QUORL_REPORT_LIBRARY OR NOT EXISTS "${QUORL_REPORT_LIBRARY}")
    message(FATAL_ERROR "QUORL_REPORT_LIBRARY names no file: '${QUORL_REPORT_LIBRARY}'")
  endif()
  if(NOT QUORL_READELF)
    find_program(QUORL_READELF readelf REQUIRED)
  endif()
  execute_process(COMMAND ${QUORL_READELF} --version-info --wide ${QUORL_REPORT_LIBRARY}
    OUTPUT_VARIABLE versions RESULT_VARIABLE readelf_result)
  if(NOT readelf_result EQUAL 0)
    message(FATAL_ERROR "${QUORL_READELF} could not read ${QUORL_REPORT_LIBRARY}")
  endif()
  # The highest version of each family that the library asks the loader for is what the target system
  # must provide at least.
  string(REGEX MATCHALL "Name: (GLIBC|GLIBCXX|CXXABI|GCC)_[0-9.]+" needs "${versions}")
  foreach(family GLIBC GLIBCXX CXXABI GCC)
    set(highest_${family} "")
  endforeach()
  foreach(need IN LISTS needs)
    string(REGEX REPLACE "^Name: ([A-Z]+)_([0-9.]+)$" "\\1" family "${need}")
    string(REGEX REPLACE "^Name: ([A-Z]+)_([0-9.]+)$" "\\2" version "${need}")
    if(highest_${family} STREQUAL "" OR version VERSION_GREATER highest_${family})
      set(highest_${family} "${version}")
    endif()
  endforeach()
  get_filename_component(name "${QUORL_REPORT_LIBRARY}" NAME)
  set(report "${name} needs at least GLIBC_${highest_GLIBC}")
  if(highest_GLIBCXX STREQUAL "")
    string(APPEND report " and no GLIBCXX_ (the C++ runtime is linked in)")
  else()
    string(APPEND report " and GLIBCXX_${highest_GLIBCXX}")
    if(NOT highest_CXXABI STREQUAL "")
      string(APPEND report " (CXXABI_${highest_CXXABI})")
    endif()
  endif()
  if(highest_GLIBC STREQUAL "")
    set(report "${name} asks for no versioned GLIBC_ symbols")
  endif()
  message(STATUS "${report}")
  return()
endif()

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# ---- The static C++ runtime ------------------------------------------------------------------------
option(QUORL_STATIC_CXX_RUNTIME
  "Link libstdc++ and libgcc into libQuorlBridge.so, so one file runs on distributions with an older C++ runtime"
  OFF)
function(quorl_link_cxx_runtime_statically target)
  # --exclude-libs keeps the runtime's own symbols local even if the version script ever loosened. Not
  # ALL: the exports themselves come from an archive too (quorl_bridge).
  target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc
    -Wl,--exclude-libs,libstdc++.a:libgcc.a:libgcc_eh.a)
endfunction()
if(QUORL_STATIC_CXX_RUNTIME)
  quorl_link_cxx_runtime_statically(QuorlBridge)
endif()

# ---- Install rules ---------------------------------------------------------------------------------
set(QUORL_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/quorl)
set(QUORL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QuorlBridge)

# The shipped library's own header lives under bridge/, as in the source tree.
target_include_directories(QuorlBridge INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
  $<INSTALL_INTERFACE:${QUORL_INSTALL_INCLUDEDIR}>)
set_target_properties(quorl_core PROPERTIES EXPORT_NAME core)

install(TARGETS QuorlBridge quorl_core EXPORT QuorlBridgeTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

install(FILES ${PROJECT_SOURCE_DIR}/src/bridge/exports.h
  DESTINATION ${QUORL_INSTALL_INCLUDEDIR}/bridge COMPONENT development)
foreach(area core options fs runtime)
  file(GLOB area_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${area}/*.h)
  if(area_headers)
    install(FILES ${area_headers} DESTINATION ${QUORL_INSTALL_INCLUDEDIR}/${area} COMPONENT development)
  endif()
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/generated/core/build_info_values.h
  DESTINATION ${QUORL_INSTALL_INCLUDEDIR}/core COMPONENT development)

install(EXPORT QuorlBridgeTargets NAMESPACE QuorlBridge:: DESTINATION ${QUORL_INSTALL_CMAKEDIR}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QuorlBridgeConfig.cmake.in
  ${PROJECT_BINARY_DIR}/packaging/QuorlBridgeConfig.cmake
  INSTALL_DESTINATION ${QUORL_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/QuorlBridgeConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/QuorlBridgeConfig.cmake
              ${PROJECT_BINARY_DIR}/packaging/QuorlBridgeConfigVersion.cmake
  DESTINATION ${QUORL_INSTALL_CMAKEDIR} COMPONENT development)

# pkg-config paths are relative to the prefix that pkg-config derives from the file's own place.
file(RELATIVE_PATH QUORL_PC_PREFIX_FROM_PCDIR
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/quorlbridge.pc.in ${PROJECT_BINARY_DIR}/packaging/quorlbridge.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/quorlbridge.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# ---- The drop-in folder for game projects ----------------------------------------------------------
set(QUORL_PACKAGING_SCRIPT ${CMAKE_CURRENT_LIST_FILE})
install(FILES $<TARGET_FILE:QuorlBridge> DESTINATION Assets/Plugins/x86_64 COMPONENT unity EXCLUDE_FROM_ALL)
# The binding's sources, whether or not this build tests them under Mono.
file(GLOB QUORL_CSHARP_BINDING CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/bindings/csharp/*.cs)
install(FILES ${QUORL_CSHARP_BINDING} DESTINATION Assets/Plugins/QuorlBridge COMPONENT unity EXCLUDE_FROM_ALL)
install(CODE "
  set(shipped \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/Assets/Plugins/x86_64/$<TARGET_FILE_NAME:QuorlBridge>\")
  if(NOT \"${CMAKE_STRIP}\" STREQUAL \"\")
    # Game builds ship no debug information; the build tree keeps it.
    execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug \"\${shipped}\")
  endif()
  execute_process(COMMAND \"${CMAKE_COMMAND}\" -DQUORL_REPORT_LIBRARY=\${shipped}
    -DQUORL_READELF=${CMAKE_READELF} -P \"${QUORL_PACKAGING_SCRIPT}\" RESULT_VARIABLE report_result)
  if(NOT report_result EQUAL 0)
    message(FATAL_ERROR \"the version report failed\")
  endif()
" COMPONENT unity EXCLUDE_FROM_ALL)

add_custom_target(quorl_unity_folder
  COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --component unity --prefix ${PROJECT_BINARY_DIR}/unity
  COMMENT "Making the drop-in folder ${PROJECT_BINARY_DIR}/unity"
  VERBATIM)
add_dependencies(quorl_unity_folder QuorlBridge)

if(QUORL_BUILD_TESTS AND EXISTS ${PROJECT_SOURCE_DIR}/tests/packaging/CMakeLists.txt)
  add_subdirectory(${PROJECT_SOURCE_DIR}/tests/packaging ${PROJECT_BINARY_DIR}/tests/packaging)
endif()
