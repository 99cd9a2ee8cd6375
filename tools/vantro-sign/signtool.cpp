// The commands of vantro-sign and their help texts. The file runs past 400 lines because of those
// texts, a hundred lines kept beside the options they describe; its code is about 300 lines.

#include "signtool.h"

#include "keyfile.h"

#include <VantroCrypto/jsoncanonical.h>
#include <VantroCrypto/jsonsignature.h>

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace vn::tools {

namespace {

constexpr char ProgramName[] = "vantro-sign";
constexpr int MinimumKeyBits = 2048;
constexpr int MaximumKeyBits = 16384;

const char GeneralUsage[] = R"(Usage: vantro-sign COMMAND [OPTIONS] [ARGUMENTS]

Keys and signed JSON objects for VantroAccount.

Commands:
  keygen --bits N --out PRIVATE.pem [--public-out PUBLIC.pem] [--force] [--passphrase-env NAME]
      Generate an RSA key pair; the private key goes to an owner-only PKCS#8 PEM file.
  sign --key PRIVATE.pem [--compact] [--passphrase-env NAME] [FILE]
      Print the JSON object with its "signature" member added or replaced.
  verify --key KEY.pem [--passphrase-env NAME] [FILE]
      Check the object's "signature"; print "signature OK" when it verifies.
  canonicalize [FILE]
      Print the canonical form (RFC 8785) of the JSON document, exactly, without a final newline.
  fingerprint [--sha1] [--passphrase-env NAME] KEY.pem
      Print the SHA-256 (or SHA-1) fingerprint of the key's SubjectPublicKeyInfo, in base64.

FILE absent or "-" reads standard input. KEY.pem may hold a public or a private key.
--passphrase-env NAME reads the passphrase of an encrypted private key from the environment
variable NAME (never from the command line); with keygen it encrypts the new key.

Exit status: 0 success, 1 verification failed or bad input, 2 usage error.
"vantro-sign COMMAND --help" describes one command.
)";

struct CommandHelp
{
    const char *name;
    const char *text;
};

const CommandHelp CommandUsage[] = {
    {"keygen", R"(Usage: vantro-sign keygen --bits N --out PRIVATE.pem [--public-out PUBLIC.pem] [--force]
                          [--passphrase-env NAME]

Generate an RSA key pair. The private key is written as PKCS#8 PEM to a file that only its owner
can read and write (0600, whatever the umask); files are replaced in one step, never left half
written. Prints the file names and the SHA-256 fingerprint of the new key.

Options:
  --bits N                 modulus size in bits, 2048 to 16384
  --out PRIVATE.pem        the private key file
  --public-out PUBLIC.pem  also write the public key (SubjectPublicKeyInfo PEM)
  --force                  replace files that already exist
  --passphrase-env NAME    encrypt the private key (PKCS#8, AES-256-CBC) with the passphrase held
                           in the environment variable NAME
  -h, --help               show this help
)"},
    {"sign", R"(Usage: vantro-sign sign --key PRIVATE.pem [--compact] [--passphrase-env NAME] [FILE]

Read a JSON object from FILE (standard input when absent or "-") and print it with its "signature"
member added or replaced: RSASSA-PSS (SHA-256, MGF1-SHA-256, 32-byte salt) over the canonical form
(RFC 8785) of the object without "signature", in standard base64.

Options:
  --key PRIVATE.pem        the signing key
  --compact                print the object on one line instead of indented
  --passphrase-env NAME    the passphrase of an encrypted key, from the environment variable NAME
  -h, --help               show this help
)"},
    {"verify", R"(Usage: vantro-sign verify --key KEY.pem [--passphrase-env NAME] [FILE]

Read a JSON object from FILE (standard input when absent or "-") and check its "signature" member.
Prints "signature OK" and exits 0 when it verifies; exits 1 with the reason otherwise.

Options:
  --key KEY.pem            the public key, or a private key whose public half is used
  --passphrase-env NAME    the passphrase of an encrypted private key, from the environment
                           variable NAME
  -h, --help               show this help
)"},
    {"canonicalize", R"(Usage: vantro-sign canonicalize [FILE]

Read a JSON object or array from FILE (standard input when absent or "-") and print its canonical
form (RFC 8785), the exact bytes that a signature covers: UTF-8, no white space, and no newline at
the end, so that the output can be hashed or compared byte for byte.

Options:
  -h, --help               show this help
)"},
    {"fingerprint", R"(Usage: vantro-sign fingerprint [--sha1] [--passphrase-env NAME] KEY.pem

Print the fingerprint of a public or private key: the hash of the DER SubjectPublicKeyInfo of its
public half, in standard base64. A key and its public half have the same fingerprint.

Options:
  --sha1                   SHA-1 instead of SHA-256
  --passphrase-env NAME    the passphrase of an encrypted private key, from the environment
                           variable NAME
  -h, --help               show this help
)"},
};

const char *usageText(const QString &command)
{
    for (const CommandHelp &help : CommandUsage) {
        if (command == QLatin1String(help.name)) {
            return help.text;
        }
    }
    return GeneralUsage;
}

QCommandLineOption passphraseOption()
{
    return {QStringLiteral("passphrase-env"), QStringLiteral("passphrase variable"), QStringLiteral("NAME")};
}

QCommandLineOption keyOption()
{
    return {QStringLiteral("key"), QStringLiteral("key file"), QStringLiteral("KEY.pem")};
}

/// The options that @p command accepts, besides --help.
QList<QCommandLineOption> commandOptions(const QString &command)
{
    if (command == QLatin1String("keygen")) {
        return {
            {QStringLiteral("bits"), QStringLiteral("modulus size"), QStringLiteral("N")},
            {QStringLiteral("out"), QStringLiteral("private key file"), QStringLiteral("PRIVATE.pem")},
            {QStringLiteral("public-out"), QStringLiteral("public key file"), QStringLiteral("PUBLIC.pem")},
            {QStringLiteral("force"), QStringLiteral("replace existing files")},
            passphraseOption()};
    }
    if (command == QLatin1String("sign")) {
        return {keyOption(), {QStringLiteral("compact"), QStringLiteral("one line")}, passphraseOption()};
    }
    if (command == QLatin1String("verify")) {
        return {keyOption(), passphraseOption()};
    }
    if (command == QLatin1String("fingerprint")) {
        return {{QStringLiteral("sha1"), QStringLiteral("SHA-1")}, passphraseOption()};
    }
    return {};
}

QString inputName(const QString &path)
{
    return path.isEmpty() || path == QLatin1String("-") ? QStringLiteral("standard input")
                                                        : QStringLiteral("input file ") + path;
}

/// Reads FILE, or standard input for none or "-".
bool readInput(const QString &path, QByteArray *bytes, QString *errorString)
{
    QFile file;
    bool opened = false;
    if (path.isEmpty() || path == QLatin1String("-")) {
        opened = file.open(stdin, QIODevice::ReadOnly);
    } else {
        file.setFileName(path);
        opened = file.open(QIODevice::ReadOnly);
    }
    if (opened) {
        *bytes = file.readAll();
    }
    if (!opened || file.error() != QFileDevice::NoError) {
        *errorString = QStringLiteral("cannot read %1: %2").arg(inputName(path), file.errorString());
        return false;
    }
    return true;
}

enum class Accept { Object, ObjectOrArray };

bool parseInput(const QByteArray &bytes, Accept accept, QJsonDocument *document, QString *errorString)
{
    const QString expected =
        accept == Accept::Object ? QStringLiteral("a JSON object") : QStringLiteral("a JSON object or array");
    QJsonParseError parseError;
    *document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *errorString = QStringLiteral("input is not %1: %2 at offset %3")
                           .arg(expected, parseError.errorString())
                           .arg(parseError.offset);
        return false;
    }
    if (accept == Accept::Object && !document->isObject()) {
        *errorString = QStringLiteral("input is not %1: the document is an array").arg(expected);
        return false;
    }
    return true;
}

QByteArray base64Fingerprint(const vn::crypto::PublicKey &key, QCryptographicHash::Algorithm algorithm)
{
    return key.fingerPrint(algorithm).toBase64();
}

} // namespace

int SignTool::run(const QStringList &arguments)
{
    struct Command
    {
        QLatin1String name;
        int (SignTool::*handler)(const QCommandLineParser &);
        int minimumArguments;
        int maximumArguments;
    };
    const Command commands[] = {
        {QLatin1String("keygen"), &SignTool::keygen, 0, 0},
        {QLatin1String("sign"), &SignTool::sign, 0, 1},
        {QLatin1String("verify"), &SignTool::verify, 0, 1},
        {QLatin1String("canonicalize"), &SignTool::canonicalize, 0, 1},
        {QLatin1String("fingerprint"), &SignTool::fingerprint, 1, 1},
    };

    if (arguments.size() < 2) {
        return usageError(QString(), QStringLiteral("no command given"));
    }
    const QString name = arguments.at(1);
    if (name == QLatin1String("--help") || name == QLatin1String("-h") || name == QLatin1String("help")) {
        std::fputs(GeneralUsage, stdout);
        return Success;
    }
    const Command *command = nullptr;
    for (const Command &candidate : commands) {
        if (name == candidate.name) {
            command = &candidate;
        }
    }
    if (!command) {
        return usageError(QString(),
                          name.startsWith(QLatin1Char('-'))
                              ? QStringLiteral("unknown option %1 (a command comes first)").arg(name)
                              : QStringLiteral("unknown command \"%1\"").arg(name));
    }

    QCommandLineParser parser;
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("help"));
    parser.addOption(helpOption);
    parser.addOptions(commandOptions(name));
    if (!parser.parse(QStringList{QLatin1String(ProgramName)} + arguments.mid(2))) {
        return usageError(name, parser.errorText());
    }
    if (parser.isSet(helpOption)) {
        std::fputs(usageText(name), stdout);
        return Success;
    }
    const int count = parser.positionalArguments().size();
    if (count > command->maximumArguments) {
        return usageError(name, QStringLiteral("unexpected argument \"%1\"")
                                    .arg(parser.positionalArguments().at(command->maximumArguments)));
    }
    if (count < command->minimumArguments) {
        return usageError(name, QStringLiteral("%1 needs a key file").arg(name));
    }
    return (this->*command->handler)(parser);
}

int SignTool::keygen(const QCommandLineParser &parser)
{
    const QString command = QStringLiteral("keygen");
    if (!parser.isSet(QStringLiteral("bits"))) {
        return usageError(command, QStringLiteral("keygen needs --bits N"));
    }
    if (!parser.isSet(QStringLiteral("out"))) {
        return usageError(command, QStringLiteral("keygen needs --out PRIVATE.pem"));
    }
    bool isNumber = false;
    const int bits = parser.value(QStringLiteral("bits")).toInt(&isNumber);
    if (!isNumber || bits < MinimumKeyBits || bits > MaximumKeyBits) {
        return usageError(command, QStringLiteral("--bits must be a number from %1 to %2, not \"%3\"")
                                       .arg(QString::number(MinimumKeyBits), QString::number(MaximumKeyBits),
                                            parser.value(QStringLiteral("bits"))));
    }
    const QString privatePath = parser.value(QStringLiteral("out"));
    const QString publicPath = parser.value(QStringLiteral("public-out"));
    if (!publicPath.isEmpty() &&
        QFileInfo(publicPath).absoluteFilePath() == QFileInfo(privatePath).absoluteFilePath()) {
        return usageError(command, QStringLiteral("--out and --public-out name the same file"));
    }

    QString passphrase;
    if (!this->passphrase(parser, &passphrase)) {
        return Failure;
    }
    if (parser.isSet(QStringLiteral("passphrase-env")) && passphrase.isEmpty()) {
        return fail(QStringLiteral("refusing to encrypt the key with an empty passphrase"));
    }

    // Refuse before generating: a large key takes a while, and the answer would be no anyway.
    if (!parser.isSet(QStringLiteral("force"))) {
        for (const QString &path : {privatePath, publicPath}) {
            const QFileInfo info(path);
            if (!path.isEmpty() && (info.exists() || info.isSymLink())) {
                return fail(QStringLiteral("%1 already exists; --force replaces it").arg(path));
            }
        }
    }

    const vn::crypto::PrivateKey key(vn::crypto::AbstractKey::RSA, bits);
    if (!key.isValid()) {
        return fail(QStringLiteral("cannot generate a %1-bit RSA key: %2")
                        .arg(QString::number(bits), key.errorString()));
    }
    QByteArray pem = passphrase.isEmpty() ? key.toPEM() : key.toEncryptedPEM(passphrase);
    if (pem.isEmpty()) {
        return fail(QStringLiteral("cannot encode the new key: %1").arg(key.errorString()));
    }
    QString errorString;
    const bool written = KeyFile::write(privatePath, pem, KeyFile::OwnerOnly, &errorString);
    pem.fill('\0');
    if (!written) {
        return fail(errorString);
    }

    QByteArray report = QStringLiteral("private key: %1 (RSA, %2 bits%3)\n")
                            .arg(privatePath, QString::number(bits),
                                 passphrase.isEmpty() ? QString() : QStringLiteral(", encrypted"))
                            .toUtf8();
    if (!publicPath.isEmpty()) {
        if (!KeyFile::write(publicPath, key.publicKey().toPEM(), KeyFile::Shared, &errorString)) {
            return fail(errorString);
        }
        report += QStringLiteral("public key: %1\n").arg(publicPath).toUtf8();
    }
    report += "SHA-256 fingerprint: " + base64Fingerprint(key.publicKey(), QCryptographicHash::Sha256) + '\n';
    return writeOutput(report) ? Success : Failure;
}

int SignTool::sign(const QCommandLineParser &parser)
{
    if (!parser.isSet(QStringLiteral("key"))) {
        return usageError(QStringLiteral("sign"), QStringLiteral("sign needs --key PRIVATE.pem"));
    }
    QString passphrase;
    if (!this->passphrase(parser, &passphrase)) {
        return Failure;
    }
    // The key first: a wrong key path fails at once instead of after reading all of standard input.
    const QString keyPath = parser.value(QStringLiteral("key"));
    const KeyFile keyFile(keyPath, passphrase);
    if (!keyFile.isValid()) {
        return fail(keyFile.errorString());
    }
    if (!keyFile.isPrivate()) {
        return fail(
            QStringLiteral("key file %1 holds a public key; signing needs the private key").arg(keyPath));
    }

    const QString path = parser.positionalArguments().value(0);
    QByteArray input;
    QJsonDocument document;
    QString errorString;
    if (!readInput(path, &input, &errorString) ||
        !parseInput(input, Accept::Object, &document, &errorString)) {
        return fail(errorString);
    }

    const vn::crypto::PrivateKey key = keyFile.privateKey();
    const QJsonObject signedObject = vn::crypto::JsonSignature::sign(document.object(), key);
    if (signedObject.isEmpty()) {
        return fail(QStringLiteral("cannot sign %1: %2").arg(inputName(path), key.errorString()));
    }
    const bool compact = parser.isSet(QStringLiteral("compact"));
    QByteArray output =
        QJsonDocument(signedObject).toJson(compact ? QJsonDocument::Compact : QJsonDocument::Indented);
    if (!output.endsWith('\n')) {
        output += '\n';
    }
    return writeOutput(output) ? Success : Failure;
}

int SignTool::verify(const QCommandLineParser &parser)
{
    if (!parser.isSet(QStringLiteral("key"))) {
        return usageError(QStringLiteral("verify"), QStringLiteral("verify needs --key KEY.pem"));
    }
    QString passphrase;
    if (!this->passphrase(parser, &passphrase)) {
        return Failure;
    }
    const KeyFile keyFile(parser.value(QStringLiteral("key")), passphrase);
    if (!keyFile.isValid()) {
        return fail(keyFile.errorString());
    }

    QByteArray input;
    QJsonDocument document;
    QString errorString;
    if (!readInput(parser.positionalArguments().value(0), &input, &errorString) ||
        !parseInput(input, Accept::Object, &document, &errorString)) {
        return fail(errorString);
    }
    const QJsonObject object = document.object();
    const QJsonValue signature = object.value(QLatin1String("signature"));
    if (signature.isUndefined()) {
        return fail(QStringLiteral("verification failed: the object has no \"signature\" member"));
    }
    if (!signature.isString()) {
        return fail(QStringLiteral("verification failed: \"signature\" is not a string"));
    }
    if (!vn::crypto::JsonSignature::verify(object, keyFile.publicKey())) {
        return fail(QStringLiteral("verification failed: the signature does not match this key and content"));
    }
    return writeOutput("signature OK\n") ? Success : Failure;
}

int SignTool::canonicalize(const QCommandLineParser &parser)
{
    QByteArray input;
    QJsonDocument document;
    QString errorString;
    if (!readInput(parser.positionalArguments().value(0), &input, &errorString) ||
        !parseInput(input, Accept::ObjectOrArray, &document, &errorString)) {
        return fail(errorString);
    }
    const QJsonValue value =
        document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    const QByteArray canonical = vn::crypto::JsonCanonical::serialize(value);
    if (canonical.isEmpty()) {
        return fail(QStringLiteral("the input has no canonical form"));
    }
    // Exactly the canonical bytes: no newline is added, so the output hashes like the signed bytes.
    return writeOutput(canonical) ? Success : Failure;
}

int SignTool::fingerprint(const QCommandLineParser &parser)
{
    QString passphrase;
    if (!this->passphrase(parser, &passphrase)) {
        return Failure;
    }
    const KeyFile keyFile(parser.positionalArguments().at(0), passphrase);
    if (!keyFile.isValid()) {
        return fail(keyFile.errorString());
    }
    const auto algorithm =
        parser.isSet(QStringLiteral("sha1")) ? QCryptographicHash::Sha1 : QCryptographicHash::Sha256;
    const QByteArray fingerprint = base64Fingerprint(keyFile.publicKey(), algorithm);
    if (fingerprint.isEmpty()) {
        return fail(
            QStringLiteral("cannot compute the fingerprint: %1").arg(keyFile.publicKey().errorString()));
    }
    return writeOutput(fingerprint + '\n') ? Success : Failure;
}

bool SignTool::passphrase(const QCommandLineParser &parser, QString *passphrase)
{
    const QString variable = parser.value(QStringLiteral("passphrase-env"));
    if (variable.isEmpty()) {
        return true;
    }
    if (!qEnvironmentVariableIsSet(variable.toLocal8Bit().constData())) {
        fail(QStringLiteral("environment variable %1 (--passphrase-env) is not set").arg(variable));
        return false;
    }
    *passphrase = qEnvironmentVariable(variable.toLocal8Bit().constData());
    return true;
}

int SignTool::fail(const QString &reason)
{
    std::fprintf(stderr, "%s: %s\n", ProgramName, qUtf8Printable(reason));
    return Failure;
}

int SignTool::usageError(const QString &command, const QString &reason)
{
    std::fprintf(stderr, "%s: %s\n\n%s", ProgramName, qUtf8Printable(reason), usageText(command));
    return UsageError;
}

bool SignTool::writeOutput(const QByteArray &bytes)
{
    const size_t written = std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    if (std::fflush(stdout) != 0 || written != size_t(bytes.size())) {
        fail(QStringLiteral("cannot write to standard output"));
        return false;
    }
    return true;
}

} // namespace vn::tools
