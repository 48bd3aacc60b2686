# Installs the kit into a fresh prefix, then builds and runs a host and a
# bundle outside the tree against it, with find_package and with pkg-config.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE _result OUTPUT_VARIABLE _out ERROR_VARIABLE _out)
  if(NOT _result EQUAL 0)
    string(REPLACE ";" " " _command "${ARGN}")
    message(FATAL_ERROR "${_command}\nfailed (${_result}):\n${_out}")
  endif()
  set(run_output "${_out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} --install ${KIT_BUILD} --prefix ${prefix})

# Only the public headers.
file(GLOB_RECURSE _installed RELATIVE ${prefix} ${prefix}/*)
foreach(_file IN LISTS _installed)
  if(_file MATCHES "_impl\\.h$|_internal\\.h$|/singleton\\.h$|/manifest\\.h$")
    message(FATAL_ERROR "an internal header was installed: ${_file}")
  endif()
endforeach()
# The package files are found by find_package and pkg-config below.
if(NOT EXISTS ${prefix}/bin/qzekit)
  message(FATAL_ERROR "qzekit was not installed in ${prefix}")
endif()
# Build-time settings of the kit stay in the kit.
file(GLOB_RECURSE _targets ${prefix}/QZExtensionKitTargets.cmake)
file(READ ${_targets} _targets_text)
if(_targets_text MATCHES "QZEKIT_BUILDING|QZEKIT_SIGN_SALT|INTERFACE_COMPILE_DEFINITIONS")
  message(FATAL_ERROR "the exported target passes the kit's own definitions on:\n${_targets_text}")
endif()

# find_package: configure, build (bundle, host, each header alone), run.
run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK}/build -j2)
file(READ ${WORK}/build/bin/extensions/sample/manifest.json _manifest)
file(GLOB _library ${WORK}/build/bin/extensions/sample/bin/sample.*)
file(MD5 "${_library}" _md5)
if(NOT _manifest MATCHES "\"libFileMD5\": \"${_md5}\"" OR NOT _manifest MATCHES "\"bin/sample\\."
   OR NOT EXISTS ${WORK}/build/bin/extensions/sample/resources/motto.txt)
  message(FATAL_ERROR "manifest or resources wrong (${_library}, MD5 ${_md5}):\n${_manifest}")
endif()
# Only $ORIGIN, as RUNPATH: an RPATH would outrank the host's search path.
run(readelf -d ${_library})
if(NOT run_output MATCHES "\\(RUNPATH\\) +Library runpath: \\[\\$ORIGIN\\]\n"
   OR run_output MATCHES "\\(RPATH\\)")
  message(FATAL_ERROR "the bundle's library should have a RUNPATH of $ORIGIN only:\n${run_output}")
endif()
# A bundle with an undefined symbol fails to link (not checked with sanitizers,
# whose runtime resolves at load time).
if(NOT CXX_FLAGS MATCHES "-fsanitize")
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/build --target undefined_symbol
                  RESULT_VARIABLE _result OUTPUT_VARIABLE _out ERROR_VARIABLE _out)
  if(_result EQUAL 0 OR NOT _out MATCHES "qzekit_consumer_defined_nowhere")
    message(FATAL_ERROR "a bundle with an undefined symbol linked, or failed otherwise:\n${_out}")
  endif()
endif()

run(${WORK}/build/bin/sample_host)
message("${run_output}")

# pkg-config: the flags it prints build a working host.
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig:${prefix}/lib64/pkgconfig
    pkg-config --cflags --libs qzextensionkit)
string(STRIP "${run_output}" _flags)
if(NOT _flags MATCHES "-I${prefix}/include/qzextensionkit" OR NOT _flags MATCHES "-lqzextensionkit")
  message(FATAL_ERROR "unexpected pkg-config flags: ${_flags}")
endif()
separate_arguments(_flags UNIX_COMMAND "${_flags}")
separate_arguments(_cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
string(REGEX MATCH "-L([^ ]+)" _ "${run_output}")
run(${CXX} -std=c++17 ${_cxx_flags} ${CONSUMER}/pkgconfig_main.cpp ${_flags}
    -Wl,-rpath,${CMAKE_MATCH_1} -o ${WORK}/pkgconfig_host)
run(${WORK}/pkgconfig_host)
message("${run_output}")
