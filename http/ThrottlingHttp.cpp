#include "ThrottlingHttp.h"

#include "ThrottledHttpReply.h"

ThrottlingHttp::ThrottlingHttp(std::unique_ptr<Http> inner, int minInterval)
    : m_inner(std::move(inner)), m_minInterval(minInterval)
{
}

HttpReply *ThrottlingHttp::request(const HttpRequest &req)
{
    auto *const reply = new ThrottledHttpReply(req, *m_inner, m_minInterval, m_clock);
    reply->setParent(&m_waiting);
    return reply;
}
