// Reads requests (RFC 9112).
#ifndef HTTPD_CHTTPREQUEST_H
#define HTTPD_CHTTPREQUEST_H

#include <cstddef>
#include <string>

#include <http_parser.h>

// One request after the other out of a stream.
class CHttpRequest
{
public:
    enum class EState
    {
        INCOMPLETE,
        COMPLETE,
        BAD,       // not HTTP
        TOO_LARGE  // its head
    };

    CHttpRequest();
    CHttpRequest(const CHttpRequest&) = delete;
    CHttpRequest& operator=(const CHttpRequest&) = delete;

    // Takes what belongs to the request. Returns: how many bytes that was.
    std::size_t Take(const char* data, std::size_t length);
    EState GetState() const { return m_eState; }

    // Of a complete request.
    http_method GetMethod() const { return static_cast<http_method>(m_Parser.method); }
    bool IsVersion11() const { return m_Parser.http_major == 1 && m_Parser.http_minor >= 1; }
    bool IsVersionKnown() const { return m_Parser.http_major == 1; }
    bool WantsKeepAlive() const { return m_bKeepAlive; }
    bool HasOneHost() const { return m_nHosts == 1; }
    const std::string& GetTarget() const { return m_strTarget; }
    const std::string& GetRange() const { return m_strRange; }  // empty: none

private:
    static constexpr std::size_t s_nLongestHead = 16384;

    static CHttpRequest& Self(http_parser* parser) { return *static_cast<CHttpRequest*>(parser->data); }
    static http_parser_settings MakeSettings();
    void EndField();

    http_parser m_Parser{};
    EState m_eState = EState::INCOMPLETE;
    std::size_t m_nHead = 0;
    bool m_bHeadOver = false;
    bool m_bKeepAlive = false;
    bool m_bValue = false;  // within the value of a field
    std::string m_strTarget;
    std::string m_strName;
    std::string m_strValue;
    std::string m_strRange;
    int m_nHosts = 0;
};

#endif
