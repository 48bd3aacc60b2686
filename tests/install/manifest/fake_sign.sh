#!/bin/sh
# Stands in for "qzekit sign LIB --cert C --key K": appends the certificate's
# text to the library, as a signature would change the file, and prints the
# two lines the real command prints. Copied as fail_sign.sh it fails; as
# lie_sign.sh it reports the digest of the file before signing.
lib=$2
before=$(md5sum "$lib" | cut -d' ' -f1)
[ "$(basename "$0")" = fail_sign.sh ] && { echo "no key" >&2; exit 3; }
cat "$4" >> "$lib"
after=$(md5sum "$lib" | cut -d' ' -f1)
[ "$(basename "$0")" = lie_sign.sh ] && after=$before
echo "libFileMD5: $after"
echo "signMD5: 0123456789abcdef0123456789abcdef"
