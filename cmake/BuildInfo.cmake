# Fixes the build information at configure time: every value, composite ones included, becomes one
# string literal in a generated header, so nothing is joined at run time.

function(_quorl_c_escape out value)
  string(REPLACE "\\" "\\\\" value "${value}")
  string(REPLACE "\"" "\\\"" value "${value}")
  set(${out} "${value}" PARENT_SCOPE)
endfunction()

function(quorl_generate_build_info header)
  set(QB_PLATFORM "Linux64")
  set(QB_CONFIG "Master")
  set(QB_VERSION "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}")

  # The build host as 12 lowercase hex characters: a digest of the host name, never the name itself.
  cmake_host_system_information(RESULT host_name QUERY HOSTNAME)
  string(MD5 host_digest "${host_name}")
  string(SUBSTRING "${host_digest}" 0 12 QB_HOST)

  # string(TIMESTAMP) honours SOURCE_DATE_EPOCH, which makes reproducible builds agree on the date.
  string(TIMESTAMP QB_DATE "%Y-%m-%dT%H:%M" UTC)

  set(QB_BRANCH "unknown")
  set(QB_HASH "0000000000000000000000000000000000000000")
  set(QB_MODIFIED "False")
  find_package(Git QUIET)
  if(QUORL_GIT_HASH MATCHES "^[0-9a-f]+$")
    # A build of a copy of the checkout (scripts/package.sh builds in a separate root without git) is
    # given the checkout's values: -DQUORL_GIT_HASH=<revision> -DQUORL_GIT_BRANCH=... -DQUORL_GIT_MODIFIED=True
    string(LENGTH "${QUORL_GIT_HASH}" hash_length)
    if(NOT hash_length EQUAL 40)
      message(FATAL_ERROR "QUORL_GIT_HASH must be a 40-character revision: '${QUORL_GIT_HASH}'")
    endif()
    set(QB_HASH "${QUORL_GIT_HASH}")
    if(QUORL_GIT_BRANCH)
      set(QB_BRANCH "${QUORL_GIT_BRANCH}")
    endif()
    if(QUORL_GIT_MODIFIED)
      set(QB_MODIFIED "True")
    endif()
  elseif(GIT_FOUND AND EXISTS "${PROJECT_SOURCE_DIR}/.git")
    execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse HEAD
      WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE hash RESULT_VARIABLE hash_rc
      OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    # Only a 40-character SHA-1 revision fits the GIT_HASH shape; anything else takes the fallback.
    string(LENGTH "${hash}" hash_length)
    if(hash_rc EQUAL 0 AND hash_length EQUAL 40 AND hash MATCHES "^[0-9a-f]+$")
      set(QB_HASH "${hash}")
      execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --abbrev-ref HEAD
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE branch
        OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
      if(branch)
        set(QB_BRANCH "${branch}")
      endif()
      execute_process(COMMAND ${GIT_EXECUTABLE} status --porcelain --untracked-files=no
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE changes ERROR_QUIET)
      if(changes)
        set(QB_MODIFIED "True")
      endif()
    else()
      message(STATUS "Build info: no git revision found, using fallback values")
    endif()
  else()
    message(STATUS "Build info: not a git checkout, using fallback values")
  endif()

  set(QB_BUILD_INFO "${QB_HOST} ${QB_DATE}")
  set(QB_GIT_INFO "${QB_HASH} ${QB_BRANCH}")
  set(QB_FULL_VERSION "VERSION: '${QB_VERSION} ${QB_HASH}'")
  foreach(v PLATFORM CONFIG VERSION HOST DATE BRANCH HASH MODIFIED BUILD_INFO GIT_INFO FULL_VERSION)
    _quorl_c_escape(QB_${v} "${QB_${v}}")
  endforeach()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/build_info_values.h.in ${header} @ONLY)
  message(STATUS "Build info: ${QB_VERSION} ${QB_BUILD_INFO} ${QB_GIT_INFO} modified=${QB_MODIFIED}")
endfunction()
