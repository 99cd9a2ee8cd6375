// Request bodies for the development service's authenticate endpoint, the one that reads a body
// from anyone: credentials, and both phases of challenge-response, against the demo scenario.

#include "accountapi.h"
#include "fuzzsupport.h"

#include <QJsonDocument>

using vn::devservice::AccountApi;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static AccountApi api;
    static const bool ready = api.setScenario(vn::devservice::Scenario::demo());
    FUZZ_CHECK(ready);

    AccountApi::Request request;
    request.method = "POST";
    request.path = QStringLiteral("api/v1/authenticate");
    request.body = QByteArray(reinterpret_cast<const char *>(data), int(size));
    const AccountApi::Response response = api.handle(request);
    // A login, a challenge, or the client's fault; 503 only when too many challenges are pending.
    FUZZ_CHECK(response.status == 200 || (response.status >= 400 && response.status < 500) ||
               response.status == 503);
    FUZZ_CHECK(QJsonDocument::fromJson(response.body).isObject());
    return 0;
}
