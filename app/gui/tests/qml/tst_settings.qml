import QtQuick
import QtTest
import "../../qml"

Item {
    id: test
    width: 700
    height: 480

    property var calls: []
    readonly property var settings: ({
        fields: { port: true, cpu: false },
        rowDensity: "comfortable", defaultFilter: "agents", batteryMode: "balanced",
        autoCloseAfterOpening: false, showAgentActivity: false, notifyAgentSessions: false,
        shortcutEnabled: true, shortcutText: "Ctrl+Alt+P", shortcutError: "", shortcutPending: false,
        launchAtLogin: false, launchAtLoginCaption: "",
        connections: [{ provider: "claude", name: "Claude", caption: "Not connected", actions: ["Connect"], testLine: "" },
                      { provider: "codex", name: "Codex", caption: "Connected", actions: ["Test relay", "Disconnect"], testLine: "" }],
        connectNotice: "", receiverFailureLine: "", privacyNote: "Privacy", updatesNote: "Updates", version: "1.0",
        canCheckForUpdates: true, updateLink: "", checkForUpdates: function() { test.calls.push("check updates") },
        supportMailURL: "mailto:x",
        setField: function(name, on) { test.calls.push("field " + name + " " + on) },
        setRowDensity: function(v) { test.calls.push("density " + v) },
        setDefaultFilter: function(v) { test.calls.push("filter " + v) },
        setBatteryMode: function(v) {}, setAutoCloseAfterOpening: function(v) {},
        setShowAgentActivity: function(v) { test.calls.push("activity " + v) },
        setNotifyAgentSessions: function(v) { test.calls.push("notices " + v) },
        setShortcutEnabled: function(v) {}, setLaunchAtLogin: function(v) {},
        connectionAction: function(p, a) { test.calls.push(p + " " + a) }, retryReceiver: function() {}
    })

    SettingsView {
        id: view
        anchors.fill: parent
        settings: test.settings
        panel: ({ openURL: function(u) {}, quit: function() {}, replayWalkthrough: function() {} })
    }

    TestCase {
    name: "SettingsView"
    when: windowShown

    function findAll(item, predicate, found) {
        if (predicate(item)) found.push(item)
        for (let i = 0; i < item.children.length; ++i) findAll(item.children[i], predicate, found)
        if (item.contentItem && item.contentItem !== item) findAll(item.contentItem, predicate, found)
        return found
    }
    function texts(value) {
        return findAll(view, function(item) { return item.text === value && item.visible }, [])
    }

    function test_connectionCardsStackWithoutOverlap() {
        const claude = texts("Claude")[0]
        const codex = texts("Codex")[0]
        verify(claude && codex)
        const a = claude.mapToItem(view, 0, 0)
        const b = codex.mapToItem(view, 0, 0)
        verify(b.y >= a.y + claude.height, "Codex's card below Claude's: " + a.y + " " + b.y)
        const heading = texts("Agent connections")[0]
        verify(heading.mapToItem(view, 0, 0).y < a.y, "under its heading")
    }

    function test_togglesAndButtonsReachTheSettings() {
        test.calls = []
        mouseClick(texts("CPU")[0])
        mouseClick(texts("Compact")[0])
        mouseClick(texts("Connect")[0])
        // Further down the settings: scrolled to first, as a user would.
        const flick = findAll(view, function(item) { return item.flick !== undefined && item.contentY !== undefined }, [])[0]
        flick.contentY = Math.max(0, flick.contentHeight - flick.height)
        waitForRendering(view)
        mouseClick(texts("Notify when an agent finishes or needs you")[0])
        compare(test.calls, ["field cpu true", "density compact", "claude Connect", "notices true"])
    }
}
}
