#pragma once

#include <QStringList>

namespace vn::tools {

/// The command line of vantro-account: its options, its table of commands, the help made from
/// both, and the checks that a command line fits one of the commands before that command runs.
class AccountTool
{
public:
    /// Runs the command line @p arguments (the program name first) and returns the exit code. The
    /// application object must exist; the account is made only after the options that decide its
    /// profile have been applied.
    int run(const QStringList &arguments);
};

} // namespace vn::tools
