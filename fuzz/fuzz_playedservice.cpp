// The Authorization header that a service the development service plays checks on every request:
// a bearer service token, its RS256 signature by the demo scenario's token key, its audience and its
// expiry. The input is the header's value; the service is the demo's "demo-files". A fuzzer cannot
// sign, so the seeds carry signed tokens with every shape of claims the check must take.

#include "fuzzsupport.h"
#include "playedservice.h"

#include <QJsonDocument>
#include <QJsonObject>

using vn::devservice::ApiRequest;
using vn::devservice::ApiResponse;
using vn::devservice::PlayedService;
using vn::devservice::Scenario;

namespace {

PlayedService demoFiles()
{
    const Scenario scenario = Scenario::demo();
    FUZZ_CHECK(scenario.isValid());
    for (const Scenario::Resource &resource : scenario.resources()) {
        if (resource.isPlayedService() && resource.serviceName() == QLatin1String("demo-files")) {
            return PlayedService(resource, scenario);
        }
    }
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static const PlayedService service = demoFiles();

    ApiRequest request;
    request.method = "GET";
    request.path = QStringLiteral("/files/report.txt");
    request.authorization = QByteArray(reinterpret_cast<const char *>(data), int(size));
    const ApiResponse response = service.handle(request);

    FUZZ_CHECK(response.status == 200 || response.status == 401);
    const QJsonObject body = QJsonDocument::fromJson(response.body).object();
    if (response.status == 200) {
        FUZZ_CHECK(body.value(QLatin1String("service")).toString() == QLatin1String("demo-files"));
        FUZZ_CHECK(body.value(QLatin1String("path")).toString() == request.path);
    } else {
        // Says what was wrong, and never echoes anything that looks like a token.
        FUZZ_CHECK(body.size() == 1 && body.value(QLatin1String("error")).isString());
        const QByteArray token = request.authorization.mid(request.authorization.indexOf(' ') + 1).trimmed();
        FUZZ_CHECK(token.size() < 8 || !token.contains('.') || !response.body.contains(token));
    }
    return 0;
}
