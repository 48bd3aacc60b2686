# The bundle manifest step against a stand-in for "qzekit sign": the library
# is signed before its MD5 is taken, and the tool's failures stop the build.

set(here ${CMAKE_CURRENT_LIST_DIR})
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
file(WRITE ${WORK}/lib.so "library bytes")
file(WRITE ${WORK}/cert.pem "certificate")
file(WRITE ${WORK}/template.json
     "{\"mainEntry\": \"bin/@QZEKIT_LIBRARY_FILE@\", \"libFileMD5\": \"@QZEKIT_LIB_FILE_MD5@\", \"signMD5\": \"@QZEKIT_SIGN_MD5@\"}")
foreach(_name fail_sign.sh lie_sign.sh)
  file(COPY_FILE ${here}/fake_sign.sh ${WORK}/${_name})
endforeach()

function(stage tool result_var output_var)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -DLIBRARY=${WORK}/lib.so -DTEMPLATE=${WORK}/template.json
            -DOUTPUT=${WORK}/manifest.json -DSIGN_TOOL=${tool} -DSIGN_CERT=${WORK}/cert.pem
            -DSIGN_KEY=${WORK}/key.pem -P ${SCRIPT}
    RESULT_VARIABLE _result OUTPUT_VARIABLE _out ERROR_VARIABLE _out)
  set(${result_var} ${_result} PARENT_SCOPE)
  set(${output_var} "${_out}" PARENT_SCOPE)
endfunction()

file(MD5 ${WORK}/lib.so unsigned_md5)
stage(${here}/fake_sign.sh result out)
file(MD5 ${WORK}/lib.so signed_md5)
file(READ ${WORK}/manifest.json manifest)
string(STRIP "${manifest}" manifest)
set(expected "{\"mainEntry\": \"bin/lib.so\", \"libFileMD5\": \"${signed_md5}\", \"signMD5\": \"0123456789abcdef0123456789abcdef\"}")
if(NOT result EQUAL 0 OR NOT manifest STREQUAL expected OR signed_md5 STREQUAL unsigned_md5)
  message(FATAL_ERROR "signed manifest (${result}, ${out}):\n${manifest}\nexpected:\n${expected}")
endif()

stage(${WORK}/fail_sign.sh result out)
if(result EQUAL 0 OR NOT out MATCHES "signing .*lib.so failed.*no key")
  message(FATAL_ERROR "a failing sign tool did not stop the step: ${out}")
endif()
stage(${WORK}/lie_sign.sh result out)
if(result EQUAL 0 OR NOT out MATCHES "reported[ \n]+libFileMD5")
  message(FATAL_ERROR "a sign tool's digest that differs from the file's was accepted: ${out}")
endif()
