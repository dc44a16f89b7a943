#include "CHttpRequest.h"

#include <strings.h>

CHttpRequest::CHttpRequest()
{
    http_parser_init(&m_Parser, HTTP_REQUEST);
    m_Parser.data = this;
}

http_parser_settings CHttpRequest::MakeSettings()
{
    http_parser_settings settings;
    http_parser_settings_init(&settings);
    settings.on_url = [](http_parser* parser, const char* at, size_t length) {
        Self(parser).m_strTarget.append(at, length);
        return 0;
    };
    settings.on_header_field = [](http_parser* parser, const char* at, size_t length) {
        CHttpRequest& self = Self(parser);
        if (self.m_bValue)
            self.EndField();
        self.m_strName.append(at, length);
        return 0;
    };
    settings.on_header_value = [](http_parser* parser, const char* at, size_t length) {
        Self(parser).m_bValue = true;
        Self(parser).m_strValue.append(at, length);
        return 0;
    };
    settings.on_headers_complete = [](http_parser* parser) {
        Self(parser).EndField();
        Self(parser).m_bHeadOver = true;
        return 0;
    };
    settings.on_message_complete = [](http_parser* parser) {
        Self(parser).m_bKeepAlive = http_should_keep_alive(parser) != 0;
        Self(parser).m_eState = EState::COMPLETE;
        http_parser_pause(parser, 1);  // what follows is the next request's
        return 0;
    };
    return settings;
}

void CHttpRequest::EndField()
{
    if (strcasecmp(m_strName.c_str(), "range") == 0)
        m_strRange = m_strValue;
    else if (strcasecmp(m_strName.c_str(), "host") == 0)
        ++m_nHosts;
    m_strName.clear();
    m_strValue.clear();
    m_bValue = false;
}

std::size_t CHttpRequest::Take(const char* data, std::size_t length)
{
    static const http_parser_settings settings = MakeSettings();
    const std::size_t taken = http_parser_execute(&m_Parser, &settings, data, length);
    const http_errno error = HTTP_PARSER_ERRNO(&m_Parser);
    if (!m_bHeadOver)
        m_nHead += taken;
    if (m_nHead > s_nLongestHead || error == HPE_HEADER_OVERFLOW)
        m_eState = EState::TOO_LARGE;
    else if (error != HPE_OK && error != HPE_PAUSED)
        m_eState = EState::BAD;
    return taken;
}
