#include "faultinjector.h"

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>

namespace vn::devservice {

namespace {

const QByteArray MalformedBody = QByteArrayLiteral(R"({"malformed": )");

bool isLoopback(const std::string &address)
{
    const QHostAddress host(QString::fromStdString(address));
    bool isMappedV4 = false;
    const QHostAddress v4(host.toIPv4Address(&isMappedV4));
    return host.isLoopback() || (isMappedV4 && v4.isLoopback());
}

// One character of a base64 text changed to another base64 character.
QString altered(const QString &signature)
{
    QString text = signature.isEmpty() ? QStringLiteral("A") : signature;
    text[0] = text.at(0) == QLatin1Char('A') ? QLatin1Char('B') : QLatin1Char('A');
    return text;
}

QJsonObject withBadSignature(QJsonObject record)
{
    const QJsonValue signature = record.value(QLatin1String("signature"));
    if (signature.isString()) {
        record.insert(QStringLiteral("signature"), altered(signature.toString()));
    }
    return record;
}

QByteArray withBadSignatures(const QByteArray &body)
{
    QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isObject()) {
        document.setObject(withBadSignature(document.object()));
    } else if (document.isArray()) {
        QJsonArray records = document.array();
        for (auto record = records.begin(); record != records.end(); ++record) {
            *record = withBadSignature(record->toObject());
        }
        document.setArray(records);
    } else {
        return body;
    }
    return document.toJson(QJsonDocument::Compact);
}

} // namespace

void FaultInjector::add(const Fault &fault)
{
    if (!fault.isValid()) {
        return;
    }
    QMutexLocker locker(&m_mutex);
    m_faults.append(fault.normalised());
}

void FaultInjector::clear()
{
    QMutexLocker locker(&m_mutex);
    m_faults.clear();
}

QList<Fault> FaultInjector::pending() const
{
    QMutexLocker locker(&m_mutex);
    return m_faults;
}

std::optional<Fault> FaultInjector::take(const QByteArray &method, const QString &path)
{
    QMutexLocker locker(&m_mutex);
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        if (it->matches(method, path)) {
            if (it->skip > 0) {
                --it->skip;
                return std::nullopt;
            }
            const Fault fault = *it;
            if (--it->count <= 0) {
                m_faults.erase(it);
            }
            return fault;
        }
    }
    return std::nullopt;
}

void FaultInjector::wait(const Fault &fault) const
{
    const QDeadlineTimer deadline(fault.delay);
    while (!deadline.hasExpired() && !m_interrupted) {
        QThread::msleep(quint64(qBound<qint64>(1, deadline.remainingTime(), 20)));
    }
}

void FaultInjector::interrupt()
{
    m_interrupted = true;
}

void FaultInjector::resume()
{
    m_interrupted = false;
}

ApiResponse FaultInjector::applied(const Fault &fault, const ApiResponse &served)
{
    ApiResponse answer =
        fault.status != 0 ? ApiResponse::error(fault.status, QStringLiteral("injected fault")) : served;
    if (fault.malformedBody) {
        answer.body = MalformedBody;
    } else if (!fault.body.isEmpty()) {
        answer.body = fault.body;
    }
    if (fault.badSignature) {
        answer.body = withBadSignatures(answer.body);
    }
    if (answer.body.size() < fault.padTo) {
        answer.body.append(QByteArray(fault.padTo - answer.body.size(), ' '));
    }
    return answer;
}

ApiResponse FaultInjector::listed(int status) const
{
    QJsonArray faults;
    QMutexLocker locker(&m_mutex);
    for (const Fault &fault : qAsConst(m_faults)) {
        faults.append(fault.toJson());
    }
    return ApiResponse::json(status, faults);
}

ApiResponse FaultInjector::serveAdmin(const QByteArray &method, const QByteArray &body,
                                      const std::string &peerAddress)
{
    if (!isLoopback(peerAddress)) {
        return ApiResponse::error(403, QStringLiteral("the admin interface answers loopback peers only"));
    }
    if (method == "GET") {
        return listed(200);
    }
    if (method == "DELETE") {
        clear();
        return listed(200);
    }
    if (method != "POST") {
        return ApiResponse::methodNotAllowed(QByteArrayLiteral("GET, POST, DELETE"));
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || (!document.isArray() && !document.isObject())) {
        return ApiResponse::error(400, QStringLiteral("the body must be a fault object or an array of them"));
    }
    const QJsonArray entries = document.isArray() ? document.array() : QJsonArray{document.object()};
    QList<Fault> added;
    for (const QJsonValue &entry : entries) {
        QString message;
        const Fault fault = Fault::fromJson(entry.toObject(), &message);
        if (!fault.isValid()) {
            return ApiResponse::error(400, message);
        }
        added.append(fault);
    }
    for (const Fault &fault : qAsConst(added)) {
        add(fault);
    }
    return listed(201);
}

} // namespace vn::devservice
