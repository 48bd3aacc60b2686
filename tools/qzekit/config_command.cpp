#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "base/base64.h"
#include "base/json/json_reader.h"
#include "platform/platform.h"
#include "qzekit/signer.h"
#include "qzekit/tool.h"

namespace qzekit {
namespace {

constexpr std::size_t kBlockSize = 16;

struct ConfigArguments {
    std::string keyFile;
    std::string in;
    std::string out;
};

struct CipherFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

// Wiped when it goes out of scope.
class Key {
public:
    ~Key() { OPENSSL_cleanse(&bytes_[0], bytes_.size()); }
    std::string& bytes() { return bytes_; }
    const unsigned char* data() const {
        return reinterpret_cast<const unsigned char*>(bytes_.data());
    }

private:
    std::string bytes_;
};

bool ReadKey(const std::string& path, Key* key, std::string* error) {
    return ReadKeyFile(path, &key->bytes(), error);
}

// The kit's reader decides what counts as JSON; empty when it reads.
std::string JsonError(const std::string& text) {
    int32_t code = 0;
    std::string message;
    if (base::JSONReader::ReadAndReturnError(text, base::JSONReader::JSON_PARSE_RFC, &code,
                                             &message)) {
        return std::string();
    }
    return message.empty() ? "not JSON" : message;
}

// AES-256-ECB one way or the other; with `pad` the cipher adds or checks
// PKCS#7 padding itself.
bool Cipher(bool encrypt, const Key& key, const std::string& in, bool pad, std::string* out) {
    std::unique_ptr<EVP_CIPHER_CTX, CipherFree> context(EVP_CIPHER_CTX_new());
    if (!context || EVP_CipherInit_ex(context.get(), EVP_aes_256_ecb(), nullptr, key.data(),
                                      nullptr, encrypt ? 1 : 0) != 1) {
        ERR_clear_error();
        return false;
    }
    EVP_CIPHER_CTX_set_padding(context.get(), pad ? 1 : 0);
    out->assign(in.size() + kBlockSize, '\0');
    auto* to = reinterpret_cast<unsigned char*>(&(*out)[0]);
    int written = 0;
    int last = 0;
    bool ok = EVP_CipherUpdate(context.get(), to, &written,
                               reinterpret_cast<const unsigned char*>(in.data()),
                               static_cast<int>(in.size())) == 1 &&
              EVP_CipherFinal_ex(context.get(), to + written, &last) == 1;
    ERR_clear_error();
    out->resize(ok ? static_cast<std::size_t>(written + last) : 0);
    return ok;
}

std::string Base64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return text;
}

// Takes the padding off: PKCS#7, or NUL bytes, which the kit also accepts.
// Then, as the kit does, the text ends at its first NUL byte.
bool Unpad(std::string* plain) {
    const auto count = static_cast<unsigned char>(plain->back());
    if (count == 0) {
        plain->resize(plain->find('\0'));
        return true;
    }
    if (count > kBlockSize ||
        plain->find_first_not_of(static_cast<char>(count), plain->size() - count) !=
            std::string::npos) {
        return false;
    }
    plain->resize(plain->size() - count);
    std::size_t nul = plain->find('\0');
    if (nul != std::string::npos) {
        plain->resize(nul);
    }
    return true;
}

// Whether the kit, which judges the last byte alone, reads JSON from `plain`.
bool KitReads(std::string plain) {
    const auto last = static_cast<signed char>(plain.back());
    if (last < 0) {
        return false;
    }
    if (last <= static_cast<signed char>(kBlockSize)) {
        plain.resize(plain.size() - static_cast<std::size_t>(last));
    }
    plain.resize(std::min(plain.size(), plain.find('\0')));
    return JsonError(plain).empty();
}

bool Write(const std::string& path, const std::string& bytes, std::string* error) {
    if (!qzextensionkit::platform::WriteFileAtomically(WidePath(path), bytes)) {
        *error = "cannot write " + path + " (error " +
                 std::to_string(qzextensionkit::platform::LastError()) + ")";
        return false;
    }
    return true;
}

// The key and the input file, where both directions start.
bool ReadInputs(const ConfigArguments& args, Key* key, std::string* text, std::string* error) {
    if (!ReadKey(args.keyFile, key, error)) {
        return false;
    }
    if (!ReadFileBytes(args.in, text)) {
        *error = "cannot read " + args.in;
        return false;
    }
    return true;
}

bool Encrypt(const ConfigArguments& args, std::string* error) {
    Key key;
    std::string plain;
    if (!ReadInputs(args, &key, &plain, error)) {
        return false;
    }
    // Encrypted, a mistake would only show when the host loads the file.
    const std::string json = JsonError(plain);
    if (!json.empty()) {
        *error = args.in + " is not JSON that the kit reads: " + json;
        return false;
    }
    std::string cipher;
    if (!Cipher(true, key, plain, true, &cipher)) {
        *error = "encryption failed";
        return false;
    }
    // No line end: the kit refuses any character outside base64.
    return Write(args.out, Base64(cipher), error);
}

bool Decrypt(const ConfigArguments& args, std::string* error) {
    Key key;
    std::string text;
    if (!ReadInputs(args, &key, &text, error)) {
        return false;
    }
    if (text.empty()) {
        *error = args.in + " is empty";
        return false;
    }
    // The kit's own decoder, so that what it refuses is refused here.
    std::string cipher;
    if (!base::Base64Decode(text, &cipher)) {
        *error = args.in + " is not base64 text";
        if (text.find_first_of(" \t\r\n") != std::string::npos) {
            *error +=
                ": it holds line breaks or blanks, which the kit refuses; remove them "
                "(base64 -w0 writes none)";
        }
        return false;
    }
    if (cipher.empty() || cipher.size() % kBlockSize != 0) {
        *error = args.in + " is not AES-256-ECB ciphertext: it decodes to " +
                 std::to_string(cipher.size()) + " bytes, not a whole number of 16-byte blocks";
        return false;
    }
    std::string plain;
    if (!Cipher(false, key, cipher, false, &plain)) {
        *error = "decryption failed";
        return false;
    }
    const std::string wrongKey = "the key in " + args.keyFile + " does not decrypt " + args.in;
    std::string unpadded = plain;
    if (!Unpad(&unpadded)) {
        // The right key all the same when the kit's looser rule yields JSON.
        *error = KitReads(plain) ? args.in +
                                       " decrypts with this key, but its padding is neither "
                                       "PKCS#7 nor NUL bytes; encrypt it again with qzekit "
                                       "config encrypt"
                                 : wrongKey +
                                       ": the padding at the end is neither PKCS#7 nor "
                                       "NUL bytes";
        return false;
    }
    plain = std::move(unpadded);
    const std::string json = JsonError(plain);
    if (!json.empty()) {
        *error = wrongKey + ": the result is not JSON (" + json + ")";
        return false;
    }
    return Write(args.out, plain, error);
}

void AddDirection(CLI::App& config, Session& session, const char* name, const char* summary,
                  const char* footer, bool (*run)(const ConfigArguments&, std::string*)) {
    auto* command = config.add_subcommand(name, summary);
    command->footer(footer);
    auto args = std::make_shared<ConfigArguments>();
    command
        ->add_option("--key-file", args->keyFile,
                     "file holding the host's 32-byte sec key (one line end after it allowed)")
        ->required();
    command->add_option("IN", args->in, "the file to read")->required();
    command->add_option("OUT", args->out, "the file to write, only when all went well")->required();
    command->callback([&session, args, name, run] {
        std::string error;
        if (!run(*args, &error)) {
            session.err << "qzekit config " << name << ": " << error << "\n";
            session.status = kExitFailure;
        }
    });
}

}  // namespace

void AddConfigCommand(CLI::App& app, Session& session) {
    auto* config = app.add_subcommand(
        "config", "Encrypt or decrypt config.json for a host that sets a sec key.");
    config->require_subcommand(1);
    config->footer(
        "The encrypted config.json is the base64 text, on one line without a line end, of "
        "AES-256-ECB ciphertext under the host's 32-byte sec key.\n\n"
        "Example:\n"
        "  qzekit config encrypt --key-file sec.key config.plain.json extensions/config.json\n"
        "  qzekit config decrypt --key-file sec.key extensions/config.json config.plain.json");
    AddDirection(*config, session, "encrypt",
                 "Encrypt a plain config.json (PKCS#7 padding) for the kit.",
                 "IN must be JSON that the kit reads.\n\n"
                 "Example:\n"
                 "  qzekit config encrypt --key-file sec.key config.plain.json "
                 "extensions/config.json",
                 Encrypt);
    AddDirection(*config, session, "decrypt",
                 "Decrypt an encrypted config.json to the text the kit reads.",
                 "Refuses a file that is not base64 of whole AES blocks, and a key that does "
                 "not decrypt it to JSON (PKCS#7 or NUL padding).\n\n"
                 "Example:\n"
                 "  qzekit config decrypt --key-file sec.key extensions/config.json "
                 "config.plain.json",
                 Decrypt);
}

}  // namespace qzekit
