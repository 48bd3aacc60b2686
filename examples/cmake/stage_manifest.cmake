# Writes a bundle's manifest.json from its template once the bundle's library
# is built: the library's file name and the MD5 of the built file, which the
# kit compares with the file before it opens it.
#
#   cmake -DLIBRARY=<built library> -DTEMPLATE=<manifest.json.in>
#         -DOUTPUT=<staged manifest.json> -P stage_manifest.cmake

foreach(_var LIBRARY TEMPLATE OUTPUT)
  if(NOT DEFINED ${_var})
    message(FATAL_ERROR "stage_manifest.cmake: ${_var} is not set")
  endif()
endforeach()
if(NOT EXISTS "${LIBRARY}")
  message(FATAL_ERROR "stage_manifest.cmake: no library at ${LIBRARY}")
endif()

get_filename_component(LIBRARY_FILE "${LIBRARY}" NAME)
# Lower-case hexadecimal, as the manifest wants it.
file(MD5 "${LIBRARY}" LIB_FILE_MD5)
configure_file("${TEMPLATE}" "${OUTPUT}" @ONLY)
# configure_file leaves an unchanged file alone; the build wants it newer
# than the library.
file(TOUCH "${OUTPUT}")
