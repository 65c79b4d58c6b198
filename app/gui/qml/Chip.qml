// A filter chip: a word and an optional count; the active one is filled.
import QtQuick

Rectangle {
    id: chip

    property string text
    property string count
    property bool active: false
    property bool stale: false
    signal clicked

    implicitWidth: label.implicitWidth + (count.length > 0 ? countLabel.implicitWidth + 6 : 0) + 20
    implicitHeight: 24
    radius: 12
    color: active ? Theme.accent : mouse.containsMouse ? Theme.raisedHover : Theme.raised
    border.width: activeFocus ? 2 : 0
    border.color: Theme.focusRing
    opacity: stale && !active ? 0.6 : 1
    activeFocusOnTab: true
    Accessible.role: Accessible.RadioButton
    Accessible.name: count.length > 0 ? text + " " + count : text
    Accessible.checkable: true
    Accessible.checked: active
    Accessible.onPressAction: chip.clicked()
    Keys.onReturnPressed: chip.clicked()
    Keys.onSpacePressed: chip.clicked()

    Row {
        anchors.centerIn: parent
        spacing: 6
        Text {
            id: label
            text: chip.text
            color: chip.active ? Theme.accentInk : Theme.ink
            font.family: Theme.sans
            font.pixelSize: 12
            font.weight: chip.active ? Font.DemiBold : Font.Normal
        }
        Text {
            id: countLabel
            visible: chip.count.length > 0
            text: chip.count
            color: chip.active ? Theme.accentInk : Theme.mutedInk
            font.family: Theme.mono
            font.pixelSize: 11
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: chip.clicked()
    }
}
