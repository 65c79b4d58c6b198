// A square button with one icon; its help is its accessible name and its tooltip.
import QtQuick

Rectangle {
    id: button

    property string icon
    property string help
    property bool checked: false
    property color tint: Theme.ink
    signal clicked

    implicitWidth: 28
    implicitHeight: 28
    radius: 8
    color: checked ? Theme.selected : mouse.containsMouse ? Theme.raisedHover : "transparent"
    border.width: activeFocus ? 2 : 0
    border.color: Theme.focusRing
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.name: help
    Accessible.onPressAction: button.clicked()
    Keys.onReturnPressed: button.clicked()
    Keys.onSpacePressed: button.clicked()

    Icon {
        anchors.centerIn: parent
        name: button.icon
        tint: button.tint
        size: 16
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: button.clicked()
    }
    ToolTipText {
        shown: mouse.containsMouse
        text: button.help
    }
}
