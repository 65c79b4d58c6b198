// The first surface: open Tidewatch at login, or not now.
import QtQuick

Item {
    id: offer

    required property var panel

    Column {
        anchors.centerIn: parent
        width: 440
        spacing: 14

        Icon {
            anchors.horizontalCenter: parent.horizontalCenter
            name: "power"
            size: 28
            tint: Theme.accent
        }
        Text {
            width: parent.width
            text: "Open Tidewatch at login?"
            color: Theme.ink
            font.family: Theme.sans
            font.pixelSize: 20
            font.weight: Font.DemiBold
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        Text {
            width: parent.width
            text: "It waits in the tray and keeps an eye on your local ports and coding agents, so the answer is one click away."
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: 13
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
        }
        Text {
            width: parent.width
            visible: text.length > 0
            text: offer.panel.offerMessage
            color: Theme.warning
            font.family: Theme.sans
            font.pixelSize: 12
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
        }
        Row {
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 10
            PlainButton { text: "Not now"; onClicked: offer.panel.declineOffer() }
            PlainButton { id: accept; text: "Open at Login"; primary: true; onClicked: offer.panel.enableAtLogin() }
        }
    }
    Component.onCompleted: accept.forceActiveFocus()
}
