#pragma once

// Signing a component library in the form the Linux kit checks: the
// library's bytes, a detached DER CMS SignedData over them (SHA-256, with the
// signer's certificate and any intermediates), a 12-byte trailer and
// "~Module signature appended~\n". A signed library still loads as before.

#include <string>

#include "platform/export.h"

namespace qzextensionkit {

struct LibrarySigningInput {
    // PEM files. The chain (intermediate certificates, one or more) is
    // optional; leave its path empty for none.
    std::wstring certificatePath;
    std::wstring keyPath;
    std::wstring chainPath;
    // For an encrypted key; empty for none.
    std::string keyPassphrase;
    // Optional, UTF-8: written as the program-name attribute that the
    // signature check logs ("Program Name", "MoreInfo Link").
    std::string programName;
    std::string moreInfoLink;
};

// Signs the library at `libraryPath` in place. A signature already appended
// is replaced. The file is replaced atomically: a reader sees the old or the
// new file, never a part. On failure `*error` (when given) says why in one
// sentence and the file is unchanged.
QZEKIT_EXPORT bool SignLibraryFile(const std::wstring& libraryPath,
                                   const LibrarySigningInput& input, std::string* error);

// The manifest texts for a signed library: `libFileMD5`, the MD5 of the
// whole signed file, and `signMD5`, the MD5 of the signer's subject name,
// that libFileMD5 and the salt this kit was built with.
struct ManifestDigests {
    std::string libFileMD5;
    std::string signMD5;
    // The signer's subject name as it enters signMD5 (UTF-8).
    std::string signerName;
};

QZEKIT_EXPORT bool ComputeManifestDigests(const std::wstring& libraryPath, ManifestDigests* out,
                                          std::string* error);

// `libFileMD5` alone, for a library signed or not: the MD5 of the whole file
// as the file check computes it.
QZEKIT_EXPORT bool ComputeLibFileMD5(const std::wstring& libraryPath, std::string* out,
                                     std::string* error);

}  // namespace qzextensionkit
