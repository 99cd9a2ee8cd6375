#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QUrl>

class QNetworkRequest;

namespace vn {
class DeleteRequest;
class GetRequest;
class PatchRequest;
class PostRequest;
class PutRequest;
} // namespace vn

namespace vn::account {

/// The requests of the account to its service, made in one place for the facade, the account
/// instance and the resources.
///
/// A relative URL is taken below "api/v1/" of the configured service URL; an absolute one is used
/// as it is. Every request goes through the shared network access manager, which lets the
/// authorization registry write the credential for its origin. Each is new and has no QObject
/// parent: it is sent when control returns to the event loop and deletes itself once finished()
/// has been delivered. POST, PUT and PATCH send JSON.
namespace AccountRequests {

QUrl resolve(const QUrl &url);

vn::GetRequest *get(const QUrl &url);
/// A GET of @p request exactly as it is: nothing is resolved or added.
vn::GetRequest *get(const QNetworkRequest &request);
vn::PostRequest *post(const QUrl &url, const QJsonObject &body);
/// The array is sent in indented JSON form.
vn::PostRequest *post(const QUrl &url, const QJsonArray &body);
vn::PutRequest *put(const QUrl &url, const QJsonObject &body);
/// @p headers are set after the JSON content type, in key order, and may replace it.
vn::PatchRequest *patch(const QUrl &url, const QJsonArray &body, const QMap<QByteArray, QByteArray> &headers);
vn::DeleteRequest *remove(const QUrl &url);

} // namespace AccountRequests

} // namespace vn::account
