// Answers requests (RFC 9110).
#ifndef HTTPD_CHTTPRESPONSE_H
#define HTTPD_CHTTPRESPONSE_H

#include <cstdint>
#include <fstream>
#include <string>

#include "CFolder.h"
#include "CHttpRequest.h"

// The head, and what of a file follows it.
class CHttpResponse
{
public:
    CHttpResponse(const CHttpRequest& request, const CFolder& folder);

    // An error's, the connection's last.
    explicit CHttpResponse(int status);

    const std::string& GetHead() const { return m_strHead; }

    // The next bytes of the body, `length` at most. Returns: how many; 0 at the end. Less than the head has promised can
    // come when the file has shrunk meanwhile.
    std::size_t Read(char* to, std::size_t length);
    std::uint64_t GetLeft() const { return m_qwLeft; }

    bool IsLast() const { return m_bLast; }  // the connection ends with it

private:
    void Answer(const CHttpRequest& request, const CFolder& folder);
    void AnswerFile(const CHttpRequest& request, const std::filesystem::path& file);
    void AnswerError(int status, const std::string& fields = std::string());
    void MakeHead(int status, const std::string& type, std::uint64_t length, const std::string& fields);

    std::string m_strHead;
    std::string m_strText;  // an error's body
    std::ifstream m_File;
    std::uint64_t m_qwLeft = 0;
    bool m_bHeadOnly = false;
    bool m_bLast = false;
};

#endif
