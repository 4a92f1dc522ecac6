# Packaging of libQuorlBridge:
#   - install rules for the shipped library, the core layer and their headers (under include/quorl/), a
#     CMake package config (find_package(QuorlBridge) gives QuorlBridge::QuorlBridge and QuorlBridge::core)
#     and a pkg-config file for C++ users of the core layer;
#   - QUORL_STATIC_CXX_RUNTIME, which links the C++ runtime into libQuorlBridge.so so that one file runs
#     on many distributions (the version script keeps the dynamic symbol table to the 35 exports);
#   - the Unity package of this build's library (target quorl_unity_package; cmake/UnityPackage.cmake).
#
# Included by the top-level CMakeLists.txt after all targets. Run as a script (cmake -P) it is the report
# of what a library needs of the system:
#   -DQUORL_REPORT_LIBRARY=<.so> [-DQUORL_READELF=<readelf>]
#   [-DQUORL_GLIBC_AT_MOST=<version>] [-DQUORL_NO_GLIBCXX=ON]    fail when the library needs more
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
  if(NOT highest_GCC STREQUAL "")
    string(APPEND report "; the unwinder libgcc_s.so.1 at GCC_${highest_GCC}")
  endif()
  if(highest_GLIBC STREQUAL "")
    set(report "${name} asks for no versioned GLIBC_ symbols")
  endif()
  message(STATUS "${report}")

  # The floors a release must keep, naming the symbols that break them.
  set(broken "")
  if(QUORL_GLIBC_AT_MOST AND NOT highest_GLIBC STREQUAL "" AND highest_GLIBC VERSION_GREATER QUORL_GLIBC_AT_MOST)
    execute_process(COMMAND ${QUORL_READELF} --dyn-syms --wide ${QUORL_REPORT_LIBRARY} OUTPUT_VARIABLE symbols)
    string(REGEX MATCHALL "[A-Za-z0-9_]+@GLIBC_[0-9.]+" versioned "${symbols}")
    set(offenders "")
    foreach(symbol IN LISTS versioned)
      string(REGEX REPLACE ".*@GLIBC_" "" version "${symbol}")
      if(version VERSION_GREATER QUORL_GLIBC_AT_MOST)
        list(APPEND offenders "${symbol}")
      endif()
    endforeach()
    list(REMOVE_DUPLICATES offenders)
    string(APPEND broken "needs GLIBC_${highest_GLIBC}, above the floor GLIBC_${QUORL_GLIBC_AT_MOST} (${offenders}); ")
  endif()
  if(QUORL_NO_GLIBCXX AND NOT highest_GLIBCXX STREQUAL "")
    string(APPEND broken "needs the system's C++ runtime (GLIBCXX_${highest_GLIBCXX}); ")
  endif()
  if(NOT broken STREQUAL "")
    message(FATAL_ERROR "${name} ${broken}")
  endif()
  return()
endif()

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# ---- The static C++ runtime ------------------------------------------------------------------------
option(QUORL_STATIC_CXX_RUNTIME
  "Link libstdc++ into libQuorlBridge.so, so one file runs on distributions with an older C++ runtime"
  OFF)
function(quorl_link_cxx_runtime_statically target)
  # Only libstdc++ goes in. The unwinder stays the system's shared libgcc_s: with a private copy
  # (-static-libgcc) an exception thrown in the library and caught by the host aborts the process.
  # --exclude-libs keeps the runtime's own symbols local even if the version script ever loosened. Not
  # ALL: the exports themselves come from an archive too (quorl_bridge).
  target_link_options(${target} PRIVATE -static-libstdc++ -Wl,--exclude-libs,libstdc++.a)
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

# ---- The Unity package ------------------------------------------------------------------------------
# build/unity-package/package is the package made from this build's library, and its tarball sits beside
# it; the tests and the C# binding's test use them. The package to ship is made by scripts/package.sh from
# the portable build, with this same script.
if(NOT QUORL_FUZZ)
  set(QUORL_UNITY_PACKAGE_DIR ${PROJECT_BINARY_DIR}/unity-package/package)
  set(QUORL_UNITY_PACKAGE_TARBALL ${PROJECT_BINARY_DIR}/unity-package/com.quorl.bridge-${PROJECT_VERSION}.tgz)
  file(GLOB_RECURSE quorl_unity_package_inputs CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/bindings/unity/* ${PROJECT_SOURCE_DIR}/bindings/csharp/*.cs)
  add_custom_command(OUTPUT ${QUORL_UNITY_PACKAGE_TARBALL}
    COMMAND ${CMAKE_COMMAND} -DLIBRARY=$<TARGET_FILE:QuorlBridge> -DOUT=${QUORL_UNITY_PACKAGE_DIR}
            -DTARBALL=${QUORL_UNITY_PACKAGE_TARBALL} -DSTRIP=${CMAKE_STRIP}
            -P ${PROJECT_SOURCE_DIR}/cmake/UnityPackage.cmake
    DEPENDS QuorlBridge ${PROJECT_SOURCE_DIR}/cmake/UnityPackage.cmake ${quorl_unity_package_inputs}
            ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/docs/game-developers.md
    COMMENT "Making the Unity package in ${QUORL_UNITY_PACKAGE_DIR}"
    VERBATIM)
  add_custom_target(quorl_unity_package ALL DEPENDS ${QUORL_UNITY_PACKAGE_TARBALL})
endif()

if(QUORL_BUILD_TESTS AND EXISTS ${PROJECT_SOURCE_DIR}/tests/packaging/CMakeLists.txt)
  add_subdirectory(${PROJECT_SOURCE_DIR}/tests/packaging ${PROJECT_BINARY_DIR}/tests/packaging)
endif()
