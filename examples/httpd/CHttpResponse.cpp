#include "CHttpResponse.h"

#include <algorithm>
#include <ctime>

#include "CRange.h"

namespace fs = std::filesystem;

namespace
{

const char* Phrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 206:
        return "Partial Content";
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 416:
        return "Range Not Satisfiable";
    case 429:
        return "Too Many Requests";
    case 431:
        return "Request Header Fields Too Large";
    default:
        return "HTTP Version Not Supported";
    }
}

std::string Date()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    char text[64];
    gmtime_r(&now, &parts);
    return std::string(text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts));
}

}  // namespace

CHttpResponse::CHttpResponse(const CHttpRequest& request, const CFolder& folder)
    : m_bLast(request.GetState() != CHttpRequest::EState::COMPLETE || !request.WantsKeepAlive())
{
    Answer(request, folder);
}

CHttpResponse::CHttpResponse(int status) : m_bLast(true)
{
    AnswerError(status);
}

void CHttpResponse::Answer(const CHttpRequest& request, const CFolder& folder)
{
    if (request.GetState() == CHttpRequest::EState::TOO_LARGE)
        return AnswerError(431);
    if (request.GetState() != CHttpRequest::EState::COMPLETE)
        return AnswerError(400);
    m_bHeadOnly = request.GetMethod() == HTTP_HEAD;
    if (!request.IsVersionKnown())
        return AnswerError(505);
    if (request.IsVersion11() && !request.HasOneHost())
        return AnswerError(400);
    if (request.GetMethod() != HTTP_GET && !m_bHeadOnly)
        return AnswerError(405, "Allow: GET, HEAD\r\n");
    const auto file = folder.Find(request.GetTarget());
    return file ? AnswerFile(request, *file) : AnswerError(404);
}

void CHttpResponse::AnswerFile(const CHttpRequest& request, const fs::path& file)
{
    m_File.open(file, std::ios::binary | std::ios::ate);
    if (!m_File)
        return AnswerError(404);
    const auto size = static_cast<std::uint64_t>(m_File.tellg());
    // A range is for GET alone (14.2).
    const CRange range = CRange::Read(m_bHeadOnly ? std::string() : request.GetRange(), size);
    if (range.m_eKind == CRange::EKind::UNSATISFIABLE)
        return AnswerError(416, "Content-Range: bytes */" + std::to_string(size) + "\r\n");
    std::string fields = "Accept-Ranges: bytes\r\n";
    const bool part = range.m_eKind == CRange::EKind::PART;
    if (part)
        fields += "Content-Range: bytes " + std::to_string(range.m_qwFirst) + "-" +
                  std::to_string(range.m_qwFirst + range.m_qwLength - 1) + "/" + std::to_string(size) + "\r\n";
    MakeHead(part ? 206 : 200, CFolder::GetType(file), range.m_qwLength, fields);
    m_File.seekg(static_cast<std::streamoff>(range.m_qwFirst));
    m_qwLeft = m_bHeadOnly ? 0 : range.m_qwLength;
}

void CHttpResponse::AnswerError(int status, const std::string& fields)
{
    m_File.close();
    m_strText = std::to_string(status) + " " + Phrase(status) + "\n";
    MakeHead(status, "text/plain; charset=utf-8", m_strText.size(), fields);
    m_qwLeft = m_bHeadOnly ? 0 : m_strText.size();
}

void CHttpResponse::MakeHead(int status, const std::string& type, std::uint64_t length, const std::string& fields)
{
    m_strHead = "HTTP/1.1 " + std::to_string(status) + " " + Phrase(status) + "\r\nDate: " + Date() +
                "\r\nContent-Type: " + type + "\r\nContent-Length: " + std::to_string(length) +
                "\r\nConnection: " + (m_bLast ? "close" : "keep-alive") + "\r\n" + fields + "\r\n";
}

std::size_t CHttpResponse::Read(char* to, std::size_t length)
{
    length = static_cast<std::size_t>(std::min<std::uint64_t>(length, m_qwLeft));
    if (m_strText.empty()) {
        m_File.read(to, static_cast<std::streamsize>(length));
        length = static_cast<std::size_t>(m_File.gcount());
    } else {
        length = m_strText.copy(to, length, m_strText.size() - m_qwLeft);
    }
    m_qwLeft -= length;
    return length;
}
