# Run by qzekit_add_bundle once a bundle's library is built: signs the
# library when asked, then writes manifest.json from the template with the
# library's file name and the MD5 of the file as it now is.
#
#   cmake -DLIBRARY=<library> -DTEMPLATE=<template> -DOUTPUT=<manifest.json>
#         [-DSIGN_TOOL=<qzekit> -DSIGN_CERT=<pem> -DSIGN_KEY=<pem> [-DSIGN_CHAIN=<pem>]]
#         -P QZEKitBundleManifest.cmake

foreach(_var LIBRARY TEMPLATE OUTPUT)
  if(NOT DEFINED ${_var})
    message(FATAL_ERROR "QZEKitBundleManifest.cmake: ${_var} is not set")
  endif()
endforeach()
if(NOT EXISTS "${LIBRARY}")
  message(FATAL_ERROR "QZEKitBundleManifest.cmake: no library at ${LIBRARY}")
endif()

set(QZEKIT_SIGN_MD5 "")
if(SIGN_CERT)
  set(_chain)
  if(SIGN_CHAIN)
    set(_chain --chain "${SIGN_CHAIN}")
  endif()
  # Signs in place and prints "libFileMD5: <hex>" and "signMD5: <hex>".
  execute_process(
    COMMAND "${SIGN_TOOL}" sign "${LIBRARY}" --cert "${SIGN_CERT}" --key "${SIGN_KEY}" ${_chain}
    RESULT_VARIABLE _result
    OUTPUT_VARIABLE _out
    ERROR_VARIABLE _err)
  if(NOT _result EQUAL 0)
    message(FATAL_ERROR "signing ${LIBRARY} failed (${SIGN_TOOL} sign, result ${_result}):\n"
                        "${_out}${_err}")
  endif()
  if(NOT _out MATCHES "signMD5: ([0-9a-f]+)")
    message(FATAL_ERROR "no signMD5 in what ${SIGN_TOOL} sign printed:\n${_out}")
  endif()
  set(QZEKIT_SIGN_MD5 "${CMAKE_MATCH_1}")
endif()

get_filename_component(QZEKIT_LIBRARY_FILE "${LIBRARY}" NAME)
# Taken after signing: the digest covers the signature too. file(MD5) gives
# the 32 lower-case hex digits the manifest wants.
file(MD5 "${LIBRARY}" QZEKIT_LIB_FILE_MD5)
if(SIGN_CERT AND _out MATCHES "libFileMD5: ([0-9a-f]+)" AND NOT CMAKE_MATCH_1 STREQUAL QZEKIT_LIB_FILE_MD5)
  message(FATAL_ERROR "${SIGN_TOOL} sign reported libFileMD5 ${CMAKE_MATCH_1}, "
                      "but the signed file's MD5 is ${QZEKIT_LIB_FILE_MD5}")
endif()
configure_file("${TEMPLATE}" "${OUTPUT}" @ONLY)
# configure_file leaves an unchanged file alone; the build wants it newer
# than the library.
file(TOUCH "${OUTPUT}")
