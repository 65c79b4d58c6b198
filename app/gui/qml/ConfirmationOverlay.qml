// The one pending confirmation over the panel: its title, its message, Cancel and its button.
import QtQuick

Rectangle {
    id: overlay

    property var confirmation: ({})
    signal confirmed
    signal cancelled

    color: "#b0000000"
    Accessible.role: Accessible.Dialog
    Accessible.name: confirmation.title || ""

    function focusConfirm() { cancel.forceActiveFocus() }

    MouseArea { anchors.fill: parent; onClicked: overlay.cancelled() }

    Rectangle {
        anchors.centerIn: parent
        width: 400
        height: content.implicitHeight + 40
        radius: 14
        color: Theme.raised
        border.color: Theme.line
        MouseArea { anchors.fill: parent }

        Column {
            id: content
            anchors { left: parent.left; right: parent.right; top: parent.top; margins: 20 }
            spacing: 10
            Text {
                width: parent.width
                text: overlay.confirmation.title || ""
                color: Theme.ink
                font.family: Theme.sans
                font.pixelSize: 15
                font.weight: Font.DemiBold
                wrapMode: Text.WordWrap
            }
            Text {
                width: parent.width
                text: overlay.confirmation.message || ""
                color: Theme.mutedInk
                font.family: Theme.sans
                font.pixelSize: 12
                wrapMode: Text.WordWrap
            }
            Item { width: 1; height: 6 }
            Row {
                anchors.right: parent.right
                spacing: 8
                PlainButton {
                    id: cancel
                    text: "Cancel"
                    onClicked: overlay.cancelled()
                    KeyNavigation.right: confirm
                }
                PlainButton {
                    id: confirm
                    text: overlay.confirmation.button || ""
                    destructive: true
                    onClicked: overlay.confirmed()
                    KeyNavigation.left: cancel
                }
            }
        }
    }
}
