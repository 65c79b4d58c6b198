// One agent session: provider, state, what it is doing, where; opened, its actions.
import QtQuick

Rectangle {
    id: row

    required property string sessionID
    required property string provider
    required property string providerName
    required property int state
    required property string stateText
    required property string explanation
    required property var hostName
    required property var projectName
    required property string location
    required property string evidence
    required property var pid
    required property string portDetail
    required property int listenerCount
    required property var stopUnavailable
    required property bool canStop
    required property string detailLine

    property bool expanded: false
    property string focusLabel
    signal toggled
    signal focusApp
    signal stop
    signal viewPorts
    signal viewProviderPorts

    // needsAttention, working, waiting, detected, finished
    readonly property color stateColor: state === 0 ? Theme.warning : state === 1 ? Theme.accent
                                      : state === 2 ? Theme.success : Theme.mutedInk

    implicitHeight: (expanded ? details.implicitHeight + 12 : 0) + 50
    radius: Theme.radius
    color: mouse.containsMouse && !expanded ? Theme.raisedHover : Theme.raised
    clip: true
    Accessible.role: Accessible.ListItem
    Accessible.name: providerName + ", " + stateText + (projectName ? ", " + projectName : "")
    Accessible.description: explanation

    Icon {
        id: mark
        anchors { left: parent.left; leftMargin: 12; top: parent.top; topMargin: 16 }
        name: row.provider === "codex" ? "terminal" : "bot"
        tint: row.stateColor
        size: 18
    }
    Column {
        anchors { left: mark.right; leftMargin: 10; right: badge.left; rightMargin: 10; top: parent.top; topMargin: 8 }
        spacing: 2
        Text {
            width: parent.width
            text: row.providerName + (row.projectName ? " · " + row.projectName : "")
            color: Theme.ink
            font.family: Theme.sans
            font.pixelSize: 13
            elide: Text.ElideRight
        }
        Text {
            width: parent.width
            text: row.explanation
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: Theme.small
            elide: Text.ElideRight
        }
    }
    Rectangle {
        id: badge
        anchors { right: parent.right; rightMargin: 12; top: parent.top; topMargin: 15 }
        width: stateLabel.implicitWidth + 14
        height: 20
        radius: 10
        color: Qt.rgba(row.stateColor.r, row.stateColor.g, row.stateColor.b, 0.16)
        Text {
            id: stateLabel
            anchors.centerIn: parent
            text: row.stateText
            color: row.stateColor
            font.family: Theme.sans
            font.pixelSize: 11
            font.weight: Font.Medium
        }
    }
    MouseArea {
        id: mouse
        anchors { left: parent.left; right: parent.right; top: parent.top }
        height: 50
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: row.toggled()
    }

    Column {
        id: details
        visible: row.expanded
        anchors { left: parent.left; right: parent.right; top: parent.top; topMargin: 52; leftMargin: 40; rightMargin: 12 }
        spacing: 6
        Text {
            width: parent.width
            text: row.detailLine
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: Theme.small
            wrapMode: Text.WordWrap
        }
        Flow {
            width: parent.width
            spacing: 6
            PlainButton {
                visible: row.focusLabel.length > 0
                icon: "app-window"
                text: row.focusLabel
                onClicked: row.focusApp()
            }
            PlainButton {
                visible: row.listenerCount > 0
                icon: "network"
                text: "View Ports"
                onClicked: row.viewPorts()
            }
            PlainButton {
                icon: "layers"
                text: "Provider Ports"
                onClicked: row.viewProviderPorts()
            }
            PlainButton {
                icon: "circle-stop"
                text: "Stop"
                destructive: true
                enabledButton: row.canStop
                help: row.stopUnavailable || ""
                onClicked: row.stop()
            }
        }
    }
}
