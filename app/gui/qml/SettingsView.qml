// The settings, over the panel: what a row shows, the list's defaults, scanning, agent activity,
// the shortcut, opening at login, the agents' connections, updates, support and quit.
pragma ComponentBehavior: Bound
import QtQuick

Rectangle {
    id: view

    required property var settings
    required property var panel
    signal closed

    // Over the whole card, so its corners follow the card's.
    property real cornerRadius: 0
    radius: cornerRadius
    color: Theme.background
    Accessible.role: Accessible.Pane
    Accessible.name: "Settings"

    component Heading: Text {
        width: parent ? parent.width : 0
        topPadding: 10
        color: Theme.faintInk
        font.family: Theme.sans
        font.pixelSize: 10
        font.weight: Font.DemiBold
        font.capitalization: Font.AllUppercase
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }
    component Note: Text {
        width: parent ? parent.width : 0
        color: Theme.mutedInk
        font.family: Theme.sans
        font.pixelSize: Theme.small
        wrapMode: Text.WordWrap
    }

    Item {
        id: bar
        anchors { left: parent.left; right: parent.right; top: parent.top }
        height: 48
        Text {
            anchors { left: parent.left; leftMargin: 20; verticalCenter: parent.verticalCenter }
            text: "Settings"
            color: Theme.ink
            font.family: Theme.sans
            font.pixelSize: Theme.title
            font.weight: Font.DemiBold
        }
        IconButton {
            anchors { right: parent.right; rightMargin: 14; verticalCenter: parent.verticalCenter }
            icon: "x"
            help: "Close Settings"
            onClicked: view.closed()
        }
        Rectangle { anchors { left: parent.left; right: parent.right; bottom: parent.bottom } height: 1; color: Theme.line }
    }

    Flickable {
        id: scroller
        anchors { left: parent.left; right: parent.right; top: bar.bottom; bottom: parent.bottom }
        contentHeight: columns.implicitHeight + 24
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        Row {
            id: columns
            x: 20
            y: 8
            width: scroller.width - 40
            spacing: 28

            Column {
                id: leftColumn
                width: (columns.width - columns.spacing) / 2
                spacing: 4

                Heading { text: "Row shows" }
                Repeater {
                    model: [{ key: "port", text: "Port" }, { key: "cpu", text: "CPU" },
                            { key: "memory", text: "Memory" }, { key: "uptime", text: "Uptime" },
                            { key: "project", text: "Project" }, { key: "host", text: "Launched from" },
                            { key: "path", text: "Executable path" }, { key: "power", text: "Activity light" },
                            { key: "powerLabels", text: "Activity words" }]
                    delegate: Toggle {
                        required property var modelData
                        width: leftColumn.width
                        text: modelData.text
                        checked: view.settings.fields[modelData.key] === true
                        onToggled: function(on) { view.settings.setField(modelData.key, on) }
                    }
                }
                Heading { text: "Rows" }
                Segmented {
                    name: "Row density"
                    value: view.settings.rowDensity
                    options: [{ value: "comfortable", text: "Comfortable" }, { value: "compact", text: "Compact" }]
                    onChosen: function(value) { view.settings.setRowDensity(value) }
                }
                Heading { text: "The list opens on" }
                Segmented {
                    name: "Default filter"
                    value: view.settings.defaultFilter
                    options: [{ value: "agents", text: "Agents" }, { value: "all", text: "All" },
                              { value: "lastUsed", text: "Last used" }]
                    onChosen: function(value) { view.settings.setDefaultFilter(value) }
                }
                Heading { text: "Scanning" }
                Segmented {
                    name: "Battery mode"
                    value: view.settings.batteryMode
                    options: [{ value: "balanced", text: "Balanced" }, { value: "batterySaver", text: "Battery saver" }]
                    onChosen: function(value) { view.settings.setBatteryMode(value) }
                }
                Toggle {
                    width: leftColumn.width
                    text: "Close the panel after opening a page"
                    checked: view.settings.autoCloseAfterOpening
                    onToggled: function(on) { view.settings.setAutoCloseAfterOpening(on) }
                }
                Toggle {
                    width: leftColumn.width
                    text: "Track agent activity while the panel is closed"
                    checked: view.settings.showAgentActivity
                    onToggled: function(on) { view.settings.setShowAgentActivity(on) }
                }
                Toggle {
                    width: leftColumn.width
                    text: "Notify when an agent finishes or needs you"
                    checked: view.settings.notifyAgentSessions
                    onToggled: function(on) { view.settings.setNotifyAgentSessions(on) }
                }
            }

            Column {
                id: rightColumn
                width: (columns.width - columns.spacing) / 2
                spacing: 6

                Heading { text: "Shortcut" }
                Toggle {
                    width: rightColumn.width
                    text: view.settings.shortcutEnabled ? "Shortcut " + view.settings.shortcutText : "Shortcut is turned off"
                    checked: view.settings.shortcutEnabled
                    onToggled: function(on) { view.settings.setShortcutEnabled(on) }
                }
                Row {
                    spacing: 8
                    PlainButton {
                        text: recorder.activeFocus ? "Press the new shortcut…" : "Record Shortcut"
                        help: "Records the next key pressed with Ctrl, Alt or Super; Escape cancels"
                        onClicked: recorder.forceActiveFocus()
                    }
                    Item {
                        id: recorder
                        width: 1
                        height: 1
                        Accessible.role: Accessible.EditableText
                        Accessible.name: "Shortcut recorder"
                        Keys.onPressed: function(event) {
                            event.accepted = true
                            if (event.key === Qt.Key_Escape) { recorder.focus = false; return }
                            const modifierKeys = [Qt.Key_Control, Qt.Key_Alt, Qt.Key_Meta, Qt.Key_Super_L, Qt.Key_Super_R, Qt.Key_Shift]
                            if (modifierKeys.indexOf(event.key) >= 0) return
                            const key = event.key >= 0x20 && event.key < 0x7f ? String.fromCharCode(event.key) : event.text
                            view.settings.recordShortcut(key, (event.modifiers & Qt.ControlModifier) !== 0,
                                                         (event.modifiers & Qt.AltModifier) !== 0,
                                                         (event.modifiers & Qt.MetaModifier) !== 0,
                                                         (event.modifiers & Qt.ShiftModifier) !== 0)
                            recorder.focus = false
                        }
                    }
                }
                Note {
                    visible: text.length > 0
                    text: view.settings.shortcutError
                    color: Theme.warning
                }
                Note {
                    visible: view.settings.shortcutPending
                    text: "Waiting for the desktop to confirm the shortcut."
                }
                Heading { text: "Login" }
                Toggle {
                    width: rightColumn.width
                    text: "Open at Login"
                    detail: view.settings.launchAtLoginCaption
                    checked: view.settings.launchAtLogin
                    onToggled: function(on) { view.settings.setLaunchAtLogin(on) }
                }
                Heading { text: "Agent connections" }
                Repeater {
                    id: cards
                    model: view.settings.connections
                    delegate: Item {
                        id: card
                        required property var modelData
                        width: rightColumn.width
                        implicitHeight: cardColumn.implicitHeight + 6
                        Column {
                            id: cardColumn
                            width: parent.width
                            spacing: 4
                            Row {
                                spacing: 8
                                Text {
                                    text: card.modelData.name
                                    color: Theme.ink
                                    font.family: Theme.sans
                                    font.pixelSize: 12
                                    font.weight: Font.DemiBold
                                    anchors.verticalCenter: parent.verticalCenter
                                }
                                Repeater {
                                    model: card.modelData.actions
                                    delegate: PlainButton {
                                        required property string modelData
                                        text: modelData
                                        onClicked: view.settings.connectionAction(card.modelData.provider, modelData)
                                    }
                                }
                            }
                            Note { text: card.modelData.caption }
                            Note { visible: text.length > 0; text: card.modelData.testLine || "" }
                        }
                    }
                }
                Note { visible: text.length > 0; text: view.settings.connectNotice; color: Theme.warning }
                Row {
                    visible: view.settings.receiverFailureLine.length > 0
                    width: rightColumn.width
                    spacing: 8
                    Note { width: parent.width - retry.width - 8; text: view.settings.receiverFailureLine; color: Theme.warning }
                    PlainButton { id: retry; text: "Retry"; onClicked: view.settings.retryReceiver() }
                }
                Note { text: view.settings.privacyNote }

                Heading { text: "Updates" }
                Note { text: view.settings.updatesNote }
                Row {
                    spacing: 8
                    visible: view.settings.canCheckForUpdates || view.settings.updateLink.length > 0
                    PlainButton {
                        text: "Check for Updates"
                        enabledButton: view.settings.canCheckForUpdates
                        onClicked: view.settings.checkForUpdates()
                    }
                    PlainButton {
                        visible: view.settings.updateLink.length > 0
                        text: "Open the Release Page"
                        onClicked: view.panel.openURL(view.settings.updateLink)
                    }
                }

                Heading { text: "Tidewatch " + view.settings.version }
                Flow {
                    width: rightColumn.width
                    spacing: 6
                    PlainButton { icon: "info"; text: "Replay Walkthrough"; onClicked: view.panel.replayWalkthrough() }
                    PlainButton { icon: "mail"; text: "Send Feedback"; onClicked: view.panel.openURL(view.settings.supportMailURL) }
                    PlainButton { icon: "power"; text: "Quit Tidewatch"; destructive: true; onClicked: view.panel.quit() }
                }
            }
        }
    }
}
