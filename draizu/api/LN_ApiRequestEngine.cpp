#include <draizu/api/LN_ApiRequestEngine.h>

#include <draizu/api/LN_IApiHandler.h>

#include <QJsonDocument>
#include <QJsonParseError>
#include <QTextStream>

using namespace Qt::StringLiterals;

LN_ApiRequestEngine::LN_ApiRequestEngine(QTextStream & stream)
    : stream_(stream)
{
}

void LN_ApiRequestEngine::registerFunction(QSharedPointer<LN_IApiHandler> const & function)
{
    functions_[function->name()] = function;
    function->onRegister();
}

void LN_ApiRequestEngine::queueRequest(LN_ApiRequest::ProtocolVersion protocol, QString const & tag,
                                       QString const & cmd, LN_ApiRequest::Body const & body)
{
    runPendingDispatch_();
    ++queueDepth_;
    struct DepthGuard
    {
        int & depth;
        ~DepthGuard() { --depth; }
    } const depthGuard{queueDepth_};

    if (tag.isEmpty() || body.content.isEmpty()) {
        LN_ApiRequest::sendFatal(stream_, LN_ApiRequest::Result_BadRequest, u"Message does not match valid syntax."_s,
                                 LN_ApiRequest::Protocol_V1);
        return;
    }

    auto * request = new LN_ApiRequest(tag, protocol, stream_);
    request->setParent(this);
    connect(request, &LN_ApiRequest::completed, this, &LN_ApiRequestEngine::requestFinished_);
    connect(request, &QObject::destroyed, this, &LN_ApiRequestEngine::requestDestroyed);

    if (cmd == u"SHUTDOWN") {
        requestShutdown();
        return;
    }
    if (cmd == u"CANCEL") {
        cancelWithTag_(tag);
        return;
    }

    QueuedRequest entry;
    entry.request = request;
    entry.tag = tag;
    if (!checkRequest_(request, cmd, body, entry))
        return;

    queue_.append(entry);
    if (queue_.size() == 1)
        processNextRequest_();
}

bool LN_ApiRequestEngine::checkRequest_(LN_ApiRequest * request, QString const & cmd,
                                        LN_ApiRequest::Body const & body, QueuedRequest & entry) const
{
    auto const failWith = [request](LN_ApiRequest::Result result, QString const & text) {
        request->fail(result, text);
        return false;
    };

    // Deliberately no early return: the checks below still run, but cannot answer twice.
    if (cmd != u"API_FUNCTION" || !body.content.startsWith(u"json="))
        request->fail(LN_ApiRequest::Result_BadRequest, u"Expected a JSON request."_s);

    QString encoded = body.content.mid(5);
    if (qsizetype const nul = encoded.indexOf(QChar(0)); nul >= 0)
        encoded.truncate(nul);
    QJsonParseError parseError;
    QJsonDocument const document =
        QJsonDocument::fromJson(QByteArray::fromPercentEncoding(encoded.toUtf8(), '%'), &parseError);

    if (parseError.error != QJsonParseError::NoError)
        return failWith(LN_ApiRequest::Result_BadRequest, u"Invalid JSON provided for request."_s);
    if (!document.isArray())
        return failWith(LN_ApiRequest::Result_BadRequest, u"JSON request expected array."_s);
    QJsonArray const array = document.array();
    if (array.size() < 2)
        return failWith(LN_ApiRequest::Result_BadRequest, u"JSON missing functions arguments."_s);
    if (!array.at(0).isString())
        return failWith(LN_ApiRequest::Result_BadRequest, u"Function name is empty."_s);

    entry.name = array.at(0).toString();
    auto const found = functions_.find(entry.name);
    if (found == functions_.end())
        return failWith(LN_ApiRequest::Result_NotFound, u"Unable to find function."_s);
    if (!found->second->isValid())
        return failWith(LN_ApiRequest::Result_ServerError, u"Function found is invalid."_s);
    if (!array.at(1).isArray())
        return failWith(LN_ApiRequest::Result_BadRequest, u"Function arguments are of the wrong type."_s);

    entry.function = found->second;
    entry.args = array.at(1).toArray();
    entry.kwargs = array.size() > 2 ? array.at(2).toObject() : QJsonObject();
    return true;
}

void LN_ApiRequestEngine::requestShutdown()
{
    if (shutdownState_ == Running)
        shutdownState_ = queue_.isEmpty() ? ShutDown : ShuttingDown;
}

void LN_ApiRequestEngine::exceptionCaught(QString const & text)
{
    LN_ApiRequest::sendException(stream_, text, LN_ApiRequest::Protocol_V1);
}

void LN_ApiRequestEngine::processNextRequest_()
{
    for (;;) {
        if (shutdownState_ == ShuttingDown) {
            shutdownState_ = ShutDown;
            Q_EMIT hasShutdownEngine();
            return;
        }
        if (shutdownState_ == ShutDown || queue_.isEmpty())
            return;

        QueuedRequest const head = queue_.first();
        if (!head.function) {
            if (head.request)
                head.request->fail(LN_ApiRequest::Result_ServerError,
                                   u"Unexpected failure looking for api function."_s);
            return;
        }
        if (head.request && !head.request->hasCompleted()) {
            if (!execHead_(head))
                return;
            continue;
        }
        queue_.removeFirst();
    }
}

bool LN_ApiRequestEngine::execHead_(QueuedRequest const & entry)
{
    DispatchFrame frame{entry.request.data(), queueDepth_, false, frame_};
    frame_ = &frame;
    try {
        entry.function->exec(entry.request.data(), entry.args, entry.kwargs);
    } catch (...) {
        frame_ = frame.outer;
        // The request answered on its way out; its successor runs before the exception goes on.
        if (frame.nextPending)
            processNextRequest_();
        throw;
    }
    frame_ = frame.outer;
    return frame.nextPending;
}

void LN_ApiRequestEngine::runPendingDispatch_()
{
    // A message read while the answered request's exec is still on the stack comes after the
    // start of the next request, as if that request had been started at the answer.
    if (frame_ && frame_->nextPending) {
        frame_->nextPending = false;
        processNextRequest_();
    }
}

void LN_ApiRequestEngine::requestFinished_(QString const & tag)
{
    for (qsizetype i = 0; i < queue_.size(); ++i) {
        if (queue_.at(i).tag != tag)
            continue;
        // Found by its entry rather than by sender(), which costs a walk over every live request.
        bool const answeredInItsExec = i == 0 && frame_ && queue_.at(0).request.data() == frame_->request
                                       && queueDepth_ == frame_->queueDepth;
        queue_.removeAt(i);
        if (i != 0)
            return;
        if (answeredInItsExec)
            frame_->nextPending = true;
        else
            processNextRequest_();
        return;
    }
}

void LN_ApiRequestEngine::cancelWithTag_(QString const & tag)
{
    for (qsizetype i = 0; i < queue_.size(); ++i) {
        QueuedRequest const entry = queue_.at(i);
        if (entry.tag != tag)
            continue;
        if (!entry.request || !entry.function)
            break;
        entry.function->cancel(entry.request.data());
    }
    LN_ApiRequest::sendCancelled(stream_, LN_ApiRequest::Protocol_V1, tag, LN_ApiRequest::Cancel_Rejected,
                                 u"Unable to find request to cancel"_s);
}

void LN_ApiRequestEngine::requestDestroyed(QObject * object)
{
    // `destroyed` comes from QObject's destructor, after the derived part has gone, so this
    // cast finds nothing for a request deleted the normal way.
    auto * request = qobject_cast<LN_ApiRequest *>(object);
    if (!request || request->hasCompleted())
        return;
    LN_ApiRequest::sendComplete(stream_, request->tag(), LN_ApiRequest::Result_ServerError,
                                {u"text/plain"_s, u"Failed to send response before request was deleted."_s},
                                LN_ApiRequest::Protocol_V1);
    requestFinished_(request->tag());
}
