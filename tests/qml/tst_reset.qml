import QtQuick 2.15
import QtTest 1.2
import Vantro.Account 1.0

// A reset needs nobody signed in; the service answers 201 for a user it knows, 404 otherwise.
TestCase {
    name: "PasswordReset"

    PasswordReset { id: reset }
    SignalSpy { id: finished; target: reset; signalName: "finished" }

    function test_reset_data() {
        return [
            { tag: "known user", email: "bob@example.com", status: 201 },
            { tag: "unknown user", email: "nobody@example.com", status: 404 }
        ]
    }

    function test_reset(row) {
        finished.clear()
        reset.email = row.email
        reset.requestReset()
        verify(reset.busy)
        finished.wait()
        compare(finished.signalArguments[0][0], row.status)
        verify(!reset.busy)
    }
}
