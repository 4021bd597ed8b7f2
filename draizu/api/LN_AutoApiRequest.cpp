#include <draizu/api/LN_AutoApiRequest.h>

#include <draizu/api/LN_ApiRequest.h>

using namespace Qt::StringLiterals;

LN_AutoApiRequest::LN_AutoApiRequest(LN_ApiRequest * request)
    : request_(request)
{
    release_ = connect(
        request, &LN_ApiRequest::signalReleasedResponseChecks, request, [this] { request_.clear(); },
        Qt::DirectConnection);
}

LN_AutoApiRequest::~LN_AutoApiRequest()
{
    // The connection lives on the request, which may outlive this guard.
    disconnect(release_);
    if (request_ && !request_->hasCompleted())
        request_->fail(LN_ApiRequest::Result_ServerError, u"Request never sent a result for request."_s);
}
