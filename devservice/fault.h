#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vn::devservice {

/// A fault that the service plays on the next requests to one path, so that clients can be tested
/// against a failing service. A plain record: fill in what the fault should do.
struct Fault
{
    /// The request path below the base, without a leading "/" and without the query, for example
    /// "api/v1/consumer". A trailing "*" matches every path that starts with what precedes it.
    QString path;
    /// The HTTP method it applies to ("GET", "POST", ...); empty for every method.
    QByteArray method;
    /// How many of the next matching requests it affects.
    int count = 1;
    /// Answer with this status (and a short JSON error body) instead of serving the request;
    /// 0 serves the request normally.
    int status = 0;
    /// Milliseconds to wait before answering (or dropping).
    int delay = 0;
    /// Replace the answer's body by text that is not valid JSON (the status stays).
    bool malformedBody = false;
    /// Replace the answer's body by these bytes (the status stays), for answers of the wrong shape;
    /// empty leaves the body alone.
    QByteArray body = QByteArray();
    /// Close the connection without any answer.
    bool dropConnection = false;
    /// Announce the whole body but close the connection after half of it.
    bool truncateBody = false;
    /// Pad the body with trailing spaces to this many bytes (the same JSON, only larger), for a
    /// client's limit on the size of an answer; 0 leaves it alone.
    int padTo = 0;
    /// Change one character of every "signature" member of the answer (an object, or the objects
    /// of an array): the records still read, but no signature verifies.
    bool badSignature = false;
    /// How many matching requests pass untouched before it applies: the second of two requests to
    /// one path (the answer of a device login) is reached with 1.
    int skip = 0;

    static constexpr int MaximumDelay = 60000;
    static constexpr int MaximumPadding = 64 * 1024 * 1024;

    bool isValid() const;
    /// The same fault with the path's leading "/" dropped and the method in upper case, as it is
    /// matched against requests.
    Fault normalised() const;
    bool matches(const QByteArray &requestMethod, const QString &requestPath) const;

    /// The admin interface's form: "path", "method", "count", "skip", "status", "delay"
    /// (milliseconds), "malformedBody", "body" (text), "dropConnection", "truncateBody", "padTo",
    /// "badSignature"; only "path" is required.
    QJsonObject toJson() const;
    /// Reads the admin form; on a missing or wrongly typed member the result is not valid and
    /// @p errorMessage says why.
    static Fault fromJson(const QJsonObject &object, QString *errorMessage = nullptr);
};

} // namespace vn::devservice
