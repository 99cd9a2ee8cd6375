#include "accountrequests_p.h"

#include "accountconfiguration.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <Vantro/patchrequest.h>
#include <Vantro/postrequest.h>
#include <Vantro/putrequest.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QJsonDocument>
#include <QNetworkRequest>

namespace vn::account::AccountRequests {

namespace {

QNetworkAccessManager *network()
{
    return network::NetworkAccessManager::sharedInstance();
}

QNetworkRequest jsonRequest(const QUrl &url)
{
    QNetworkRequest request(resolve(url));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    return request;
}

} // namespace

QUrl resolve(const QUrl &url)
{
    if (!url.isRelative()) {
        return url;
    }
    const QUrl base = AccountConfiguration::serviceUrl().resolved(QUrl(QStringLiteral("api/v1/")));
    return base.resolved(url);
}

GetRequest *get(const QUrl &url)
{
    return new GetRequest(QNetworkRequest(resolve(url)), network());
}

GetRequest *get(const QNetworkRequest &request)
{
    return new GetRequest(request, network());
}

PostRequest *post(const QUrl &url, const QJsonObject &body)
{
    return new PostRequest(jsonRequest(url), network(), body);
}

PostRequest *post(const QUrl &url, const QJsonArray &body)
{
    return new PostRequest(jsonRequest(url), network(), QJsonDocument(body).toJson());
}

PutRequest *put(const QUrl &url, const QJsonObject &body)
{
    return new PutRequest(jsonRequest(url), network(), body);
}

PatchRequest *patch(const QUrl &url, const QJsonArray &body, const QMap<QByteArray, QByteArray> &headers)
{
    QNetworkRequest request = jsonRequest(url);
    for (auto header = headers.cbegin(); header != headers.cend(); ++header) {
        request.setRawHeader(header.key(), header.value());
    }
    return new PatchRequest(request, network(), body);
}

DeleteRequest *remove(const QUrl &url)
{
    return new DeleteRequest(QNetworkRequest(resolve(url)), network());
}

} // namespace vn::account::AccountRequests
