// FileToolP::EncryptData: AES-128 in CTR mode with an all-zero initial
// counter block, through libgcrypt. CTR turns the cipher into a key stream
// that is XORed onto the data, so the one call both encrypts and decrypts
// and never changes the length.
#include <gcrypt.h>

#include <mutex>

#include "grabsystem/platform/toolkit/file_tool.h"

namespace DrasselSpace {

namespace {

bool InitialiseGcrypt() {
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] {
        ready = gcry_check_version(GCRYPT_VERSION) != nullptr;
        if (ready) {
            gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
            gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        }
    });
    return ready;
}

}  // namespace

bool FileToolP::EncryptData(unsigned char* data, size_t size, const unsigned char* key, size_t keyLength) {
    if (key == nullptr || keyLength != kKeyLength || (data == nullptr && size != 0)) return false;
    if (size == 0) return true;
    if (!InitialiseGcrypt()) return false;
    gcry_cipher_hd_t cipher = nullptr;
    if (gcry_cipher_open(&cipher, GCRY_CIPHER_AES128, GCRY_CIPHER_MODE_CTR, 0) != 0) return false;
    const unsigned char counter[16] = {};
    const bool ok = gcry_cipher_setkey(cipher, key, keyLength) == 0 &&
                    gcry_cipher_setctr(cipher, counter, sizeof counter) == 0 &&
                    gcry_cipher_encrypt(cipher, data, size, nullptr, 0) == 0;
    gcry_cipher_close(cipher);
    return ok;
}

}  // namespace DrasselSpace
