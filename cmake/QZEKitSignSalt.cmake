# The salt that binds a signer's name to a library's digest in a bundle's
# signMD5. It is compiled into the kit: every organisation that signs its own
# bundles must build the kit with its own salt.

set(QZEKIT_SIGN_SALT "Development salt only, replace it in releases"
    CACHE STRING "The 45-byte salt of signMD5 (the default is for development only)")

string(LENGTH "${QZEKIT_SIGN_SALT}" _qzekit_salt_length)
if(NOT _qzekit_salt_length EQUAL 45)
  message(FATAL_ERROR
    "QZEKIT_SIGN_SALT must be exactly 45 bytes long; the value given has "
    "${_qzekit_salt_length}. Pass your own with -DQZEKIT_SIGN_SALT=<45 bytes>.")
endif()
if(QZEKIT_SIGN_SALT STREQUAL "Development salt only, replace it in releases")
  message(STATUS "QZEKIT_SIGN_SALT: the development default is in use")
endif()

# Passed on as a list of byte values, so that quotes, backslashes,
# semicolons and non-ASCII bytes in the salt need no escaping anywhere.
string(HEX "${QZEKIT_SIGN_SALT}" _qzekit_salt_hex)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," _qzekit_salt_bytes "${_qzekit_salt_hex}")
string(REGEX REPLACE ",$" "" QZEKIT_SIGN_SALT_BYTES "${_qzekit_salt_bytes}")
