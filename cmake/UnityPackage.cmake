# Makes the Unity package com.quorl.bridge from a built libQuorlBridge.so, in the package manager's
# layout, and optionally its tarball in npm's layout (everything under package/):
#
#   cmake -DLIBRARY=<libQuorlBridge.so> -DOUT=<folder> [-DTARBALL=<file.tgz>] [-DSTRIP=<strip>]
#         -P cmake/UnityPackage.cmake
#
# <folder> is made afresh and holds
#   package.json  CHANGELOG.md
#   Runtime/                       the C# binding and its assembly definition
#   Runtime/Plugins/x86_64/        libQuorlBridge.so, imported for the Linux editor and Linux 64-bit players
#   Samples~/  Documentation~/     hidden from the import: a sample scene script, the developers' guide
# and a .meta beside every other file and folder. A package from a tarball or a git URL is read-only to
# the engine, which ignores an asset without its .meta, and a project refers to assets by the GUIDs in
# them, so each GUID is derived from the package name and the asset's path: the same in every build,
# different for every asset.
#
# Runs with the CMake of scripts/package.sh's build root too, so it asks for no more than 3.18.
cmake_minimum_required(VERSION 3.18)

get_filename_component(source "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
foreach(required LIBRARY OUT)
  if(NOT ${required})
    message(FATAL_ERROR "UnityPackage.cmake: -D${required}=... is required")
  endif()
endforeach()
if(NOT EXISTS "${LIBRARY}")
  message(FATAL_ERROR "UnityPackage.cmake: no library at ${LIBRARY}")
endif()

# The version is the project's own, read from the top-level project() call.
file(STRINGS "${source}/CMakeLists.txt" project_line REGEX "^project\\(QuorlBridge VERSION [0-9.]+")
string(REGEX REPLACE ".* VERSION ([0-9]+\\.[0-9]+\\.[0-9]+).*" "\\1" QUORL_VERSION "${project_line}")
if(NOT QUORL_VERSION MATCHES "^[0-9]+\\.[0-9]+\\.[0-9]+$")
  message(FATAL_ERROR "UnityPackage.cmake: no version in ${source}/CMakeLists.txt")
endif()
set(package_name com.quorl.bridge)
set(unity "${source}/bindings/unity")

file(REMOVE_RECURSE "${OUT}")
file(MAKE_DIRECTORY "${OUT}/Runtime/Plugins/x86_64" "${OUT}/Documentation~")

configure_file("${unity}/package.json.in" "${OUT}/package.json" @ONLY)
configure_file("${source}/CHANGELOG.md" "${OUT}/CHANGELOG.md" COPYONLY)
file(GLOB binding "${source}/bindings/csharp/*.cs")
file(COPY ${binding} "${unity}/Runtime/Quorl.Bridge.asmdef" DESTINATION "${OUT}/Runtime")
file(COPY "${unity}/Samples~" DESTINATION "${OUT}")
configure_file("${source}/docs/game-developers.md" "${OUT}/Documentation~/game-developers.md" COPYONLY)
set(plugin "${OUT}/Runtime/Plugins/x86_64/libQuorlBridge.so")
configure_file("${LIBRARY}" "${plugin}" COPYONLY)
if(STRIP)
  # Players ship no debug information; the symbol table stays, for readable crash reports.
  execute_process(COMMAND "${STRIP}" --strip-debug "${plugin}" RESULT_VARIABLE strip_result)
  if(NOT strip_result EQUAL 0)
    message(FATAL_ERROR "UnityPackage.cmake: ${STRIP} failed on ${plugin}")
  endif()
endif()

# One .meta per asset and folder, outside the hidden folders (a name ending in ~) and their contents.
file(GLOB_RECURSE assets LIST_DIRECTORIES true RELATIVE "${OUT}" "${OUT}/*")
list(SORT assets)
set(meta_count 0)
foreach(asset IN LISTS assets)
  if(asset MATCHES "(^|/)[^/]*~(/|$)")
    continue()
  endif()
  string(MD5 guid "${package_name}/${asset}")
  set(tail "  externalObjects: {}\n  userData: \n  assetBundleName: \n  assetBundleVariant: \n")
  if(IS_DIRECTORY "${OUT}/${asset}")
    set(meta "fileFormatVersion: 2\nguid: ${guid}\nfolderAsset: yes\nDefaultImporter:\n${tail}")
  elseif(asset MATCHES "\\.so$")
    set(GUID "${guid}")
    configure_file("${unity}/plugin-importer.meta.in" "${OUT}/${asset}.meta" @ONLY)
    math(EXPR meta_count "${meta_count} + 1")
    continue()
  elseif(asset MATCHES "\\.cs$")
    string(CONCAT meta "fileFormatVersion: 2\nguid: ${guid}\nMonoImporter:\n  externalObjects: {}\n"
                "  serializedVersion: 2\n  defaultReferences: []\n  executionOrder: 0\n"
                "  icon: {instanceID: 0}\n  userData: \n  assetBundleName: \n  assetBundleVariant: \n")
  elseif(asset MATCHES "\\.asmdef$")
    set(meta "fileFormatVersion: 2\nguid: ${guid}\nAssemblyDefinitionImporter:\n${tail}")
  elseif(asset STREQUAL "package.json")
    set(meta "fileFormatVersion: 2\nguid: ${guid}\nPackageManifestImporter:\n${tail}")
  elseif(asset MATCHES "\\.md$")
    set(meta "fileFormatVersion: 2\nguid: ${guid}\nTextScriptImporter:\n${tail}")
  else()
    message(FATAL_ERROR "UnityPackage.cmake: no importer known for ${asset}")
  endif()
  file(WRITE "${OUT}/${asset}.meta" "${meta}")
  math(EXPR meta_count "${meta_count} + 1")
endforeach()

file(GLOB_RECURSE files RELATIVE "${OUT}" "${OUT}/*")
list(LENGTH files file_count)
file(SIZE "${plugin}" plugin_size)
message(STATUS "Unity package ${package_name} ${QUORL_VERSION}: ${OUT} (${file_count} files, ${meta_count} "
               ".meta, libQuorlBridge.so ${plugin_size} bytes)")

if(TARBALL)
  # npm's pack layout: every entry under package/, files in a fixed order with the build's date, so the
  # same inputs give the same list and times.
  get_filename_component(out_parent "${OUT}" DIRECTORY)
  set(stage "${out_parent}/.tarball-stage")
  file(REMOVE_RECURSE "${stage}")
  file(MAKE_DIRECTORY "${stage}")
  file(COPY "${OUT}/" DESTINATION "${stage}/package")
  list(SORT files)
  list(TRANSFORM files PREPEND "package/")
  string(REPLACE ";" "\n" file_list "${files}")
  file(WRITE "${stage}/files.txt" "${file_list}\n")
  string(TIMESTAMP mtime "%Y-%m-%d %H:%M:%S UTC" UTC)
  get_filename_component(tarball "${TARBALL}" ABSOLUTE)
  execute_process(COMMAND "${CMAKE_COMMAND}" -E tar czf "${tarball}" --format=gnutar "--mtime=${mtime}"
                          --files-from=files.txt
                  WORKING_DIRECTORY "${stage}" RESULT_VARIABLE tar_result)
  file(REMOVE_RECURSE "${stage}")
  if(NOT tar_result EQUAL 0)
    message(FATAL_ERROR "UnityPackage.cmake: could not write ${tarball}")
  endif()
  file(SIZE "${tarball}" tarball_size)
  message(STATUS "Unity package tarball: ${tarball} (${tarball_size} bytes)")
endif()
