// Replays inputs through a fuzz target without libFuzzer: every file named, and every file of every
// folder named (in name order), once each. A crash or a failed property ends the process as it would
// end the fuzzer; under ASan and UBSan the faults that do not crash by themselves end it too.

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const QString path = QString::fromLocal8Bit(argv[i]);
        QStringList files{path};
        if (QFileInfo(path).isDir()) {
            const QDir folder(path);
            files.clear();
            for (const QString &name : folder.entryList(QDir::Files, QDir::Name)) {
                files.append(folder.filePath(name));
            }
        }
        for (const QString &name : qAsConst(files)) {
            QFile file(name);
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qUtf8Printable(name));
                return 1;
            }
            const QByteArray bytes = file.readAll();
            // A buffer of exactly the input's size, as the fuzzer gives: ASan sees a read past its end.
            const auto input = std::make_unique<uint8_t[]>(size_t(bytes.size()));
            std::memcpy(input.get(), bytes.constData(), size_t(bytes.size()));
            LLVMFuzzerTestOneInput(input.get(), size_t(bytes.size()));
            ++replayed;
        }
    }
    std::printf("%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
