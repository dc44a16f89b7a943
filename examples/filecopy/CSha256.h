// SHA-256 of a stream of bytes.
#ifndef FILECOPY_CSHA256_H
#define FILECOPY_CSHA256_H

#include <cstddef>
#include <memory>
#include <string>

#include <openssl/evp.h>

class CSha256
{
public:
    static constexpr std::size_t s_nDigits = 64;

    CSha256() : m_pContext(EVP_MD_CTX_new(), &EVP_MD_CTX_free)
    {
        EVP_DigestInit_ex(m_pContext.get(), EVP_sha256(), nullptr);
    }

    void Add(const void* data, std::size_t length) { EVP_DigestUpdate(m_pContext.get(), data, length); }

    // The digest of all that was added, in hexadecimal; nothing may be added afterwards.
    std::string Finish()
    {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_DigestFinal_ex(m_pContext.get(), digest, &length);
        std::string text;
        for (unsigned int i = 0; i < length; ++i) {
            text += "0123456789abcdef"[digest[i] >> 4];
            text += "0123456789abcdef"[digest[i] & 0xF];
        }
        return text;
    }

private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> m_pContext;
};

#endif
