// A text button, optionally with an icon; primary buttons carry the accent, destructive ones red.
import QtQuick

Rectangle {
    id: button

    property string text
    property string icon
    property string help
    property bool primary: false
    property bool destructive: false
    property bool enabledButton: true
    signal clicked

    implicitWidth: row.implicitWidth + 24
    implicitHeight: 28
    radius: 8
    color: primary ? (mouse.pressed ? Qt.darker(Theme.accent, 1.2) : Theme.accent)
                   : destructive ? (mouse.containsMouse ? "#5a2626" : "#3a1f22")
                                 : (mouse.containsMouse ? Theme.raisedHover : "#2a2d34")
    border.width: activeFocus ? 2 : 0
    border.color: Theme.focusRing
    activeFocusOnTab: enabledButton
    Accessible.role: Accessible.Button
    Accessible.name: text.length > 0 ? text : help
    Accessible.description: help
    Accessible.onPressAction: if (button.enabledButton) button.clicked()
    Keys.onReturnPressed: if (button.enabledButton) button.clicked()
    Keys.onSpacePressed: if (button.enabledButton) button.clicked()

    Row {
        id: row
        anchors.centerIn: parent
        spacing: 6
        // Dimmed when it cannot act; its tooltip, which says why, stays clear.
        opacity: button.enabledButton ? 1 : 0.45
        Icon {
            visible: button.icon.length > 0
            name: button.icon
            size: 14
            tint: button.primary ? Theme.accentInk : button.destructive ? Theme.danger : Theme.ink
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            visible: button.text.length > 0
            text: button.text
            color: button.primary ? Theme.accentInk : button.destructive ? Theme.danger : Theme.ink
            font.family: Theme.sans
            font.pixelSize: 12
            font.weight: Font.Medium
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: if (button.enabledButton) button.clicked()
    }
    ToolTipText {
        shown: mouse.containsMouse && button.help.length > 0
        text: button.help
    }
}
