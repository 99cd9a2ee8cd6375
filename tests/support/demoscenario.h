#pragma once

#include <QString>

// What the development service's built-in demo scenario holds (devservice/demo/scenario.json), as
// tests name it.
namespace vn::test::demo {

inline const QString Ada = QStringLiteral("ada@example.com");
inline const QString AdaPassword = QStringLiteral("ada-demo-password");
inline const QString AdaConsumerId = QStringLiteral("d99d9154-7a9c-4694-a1c7-0e2359e87f70");
inline const QString Bob = QStringLiteral("bob@example.com");
inline const QString BobPassword = QStringLiteral("bob-demo-password");

/// The service resources: demo-files for everyone, demo-reports for Ada only.
inline const QString FilesService = QStringLiteral("e229d538-f031-47f0-8501-7318f794bdf8");
inline const QString ReportsService = QStringLiteral("5a0e8c1e-6f3b-4d2a-9c47-8b1d2e3f4a5b");
inline const QString Database = QStringLiteral("d28dbfe9-09a6-4d70-b66e-2645d0940d90");

} // namespace vn::test::demo
