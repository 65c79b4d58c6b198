// A labelled switch.
import QtQuick

Item {
    id: toggle

    property string text
    property string detail
    property bool checked: false
    signal toggled(bool on)

    implicitWidth: 300
    implicitHeight: Math.max(track.height, labels.implicitHeight) + 8
    activeFocusOnTab: true
    Accessible.role: Accessible.CheckBox
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: checked
    Accessible.onToggleAction: toggle.toggled(!toggle.checked)
    Accessible.onPressAction: toggle.toggled(!toggle.checked)
    Keys.onSpacePressed: toggle.toggled(!toggle.checked)
    Keys.onReturnPressed: toggle.toggled(!toggle.checked)

    Column {
        id: labels
        anchors { left: parent.left; right: track.left; rightMargin: 12; verticalCenter: parent.verticalCenter }
        Text {
            width: parent.width
            text: toggle.text
            color: Theme.ink
            font.family: Theme.sans
            font.pixelSize: 12
            elide: Text.ElideRight
        }
        Text {
            width: parent.width
            visible: toggle.detail.length > 0
            text: toggle.detail
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: Theme.small
            wrapMode: Text.WordWrap
        }
    }
    Rectangle {
        id: track
        anchors { right: parent.right; verticalCenter: parent.verticalCenter }
        width: 32
        height: 18
        radius: 9
        color: toggle.checked ? Theme.accent : "#3a3d45"
        border.width: toggle.activeFocus ? 2 : 0
        border.color: Theme.focusRing
        Rectangle {
            width: 14
            height: 14
            radius: 7
            y: 2
            x: toggle.checked ? parent.width - width - 2 : 2
            color: toggle.checked ? Theme.accentInk : Theme.ink
            Behavior on x { NumberAnimation { duration: 120 } }
        }
    }
    MouseArea {
        anchors.fill: parent
        cursorShape: Qt.PointingHandCursor
        onClicked: toggle.toggled(!toggle.checked)
    }
}
