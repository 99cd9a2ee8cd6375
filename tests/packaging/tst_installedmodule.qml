import QtQuick 2.15
import QtTest 1.2
import Vantro.Account 1.0

// The installed module, loaded by a program that knows nothing of the build: nobody is signed in.
TestCase {
    name: "InstalledModule"

    Account { id: account }

    function test_types() {
        compare(account.status, Account.Disconnected)
    }
}
