// The panel: the first-run surfaces until they are through, then the header over the ports or
// the agents, with settings, confirmations and notices above them. Every text and decision comes
// from the models; this file lays out, binds and animates.
pragma ComponentBehavior: Bound

import QtQuick

Item {
    id: root

    required property var viewModel
    required property var panel
    required property var settings
    property bool showSettings: false

    width: 700
    height: 480

    // Escape closes what is on top: the action menu, the sort menu, a confirmation, the settings;
    // then the panel.
    function closeTopmost() {
        if (ports.closeMenu()) return
        if (header.sortMenuShown) { header.sortMenuShown = false; return }
        if (root.viewModel.pendingConfirmation.length > 0) { root.viewModel.cancelConfirmation(); return }
        if (root.showSettings) { root.showSettings = false; return }
        root.panel.dismissNow()
    }

    Connections {
        target: root.panel
        function onEscapePressed() { root.closeTopmost() }
        function onShown() { if (header.ports) ports.focusList() }
    }

    Rectangle {
        id: card
        anchors.fill: parent
        radius: root.panel.windowMode ? 0 : 22
        color: Theme.background
        border.color: root.panel.windowMode ? "transparent" : "#33363d"
        border.width: 1
        clip: true
        opacity: root.panel.revealed ? 1 : 0
        scale: root.panel.revealed ? 1 : 0.98

        Behavior on opacity {
            NumberAnimation {
                duration: root.panel.revealDuration
                easing.type: root.panel.revealCurve === "reveal" ? Easing.BezierSpline
                           : root.panel.revealCurve === "easeIn" ? Easing.InQuad : Easing.OutQuad
                easing.bezierCurve: [0.23, 1.0, 0.32, 1.0, 1.0, 1.0]
            }
        }
        Behavior on scale {
            NumberAnimation { duration: root.panel.revealDuration; easing.type: Easing.OutCubic }
        }

        OfferView {
            anchors.fill: parent
            visible: root.panel.surface === "offer"
            panel: root.panel
        }
        WalkthroughView {
            anchors.fill: parent
            visible: root.panel.surface === "walkthrough"
            panel: root.panel
        }

        Item {
            id: main
            anchors { fill: parent; leftMargin: 18; rightMargin: 18; bottomMargin: 10 }
            visible: root.panel.surface === "list"

            Header {
                id: header
                anchors { left: parent.left; right: parent.right; top: parent.top }
                viewModel: root.viewModel
                settingsShown: root.showSettings
                onSettingsToggled: root.showSettings = !root.showSettings
                onMoveSelection: function(delta) { if (header.ports) ports.moveSelection(delta) }
            }
            PortsPane {
                id: ports
                anchors { left: parent.left; right: parent.right; top: header.bottom; topMargin: 8; bottom: parent.bottom }
                visible: header.ports
                viewModel: root.viewModel
                panel: root.panel
            }
            AgentsPane {
                anchors { left: parent.left; right: parent.right; top: header.bottom; topMargin: 8; bottom: parent.bottom }
                visible: !header.ports
                viewModel: root.viewModel
            }
        }

        // A notice of a guarded action that did not go as asked.
        Rectangle {
            id: notice
            visible: root.viewModel.killNotice.length > 0
            anchors { left: parent.left; right: parent.right; bottom: parent.bottom; margins: 14; bottomMargin: 46 }
            height: noticeText.implicitHeight + 20
            radius: 10
            color: "#3a2a1a"
            border.color: Theme.warning
            z: 30
            Accessible.role: Accessible.AlertMessage
            Accessible.name: root.viewModel.killNotice
            Icon {
                id: noticeIcon
                anchors { left: parent.left; leftMargin: 12; verticalCenter: parent.verticalCenter }
                name: "circle-alert"
                tint: Theme.warning
            }
            Text {
                id: noticeText
                anchors { left: noticeIcon.right; leftMargin: 8; right: noticeClose.left; rightMargin: 8; verticalCenter: parent.verticalCenter }
                text: root.viewModel.killNotice
                color: Theme.ink
                font.family: Theme.sans
                font.pixelSize: 12
                wrapMode: Text.WordWrap
            }
            IconButton {
                id: noticeClose
                anchors { right: parent.right; rightMargin: 6; verticalCenter: parent.verticalCenter }
                icon: "x"
                help: "Dismiss"
                onClicked: root.viewModel.dismissNotice()
            }
        }

        SettingsView {
            anchors.fill: parent
            visible: root.showSettings && root.panel.surface === "list"
            z: 40
            settings: root.settings
            panel: root.panel
            cornerRadius: card.radius
            onClosed: root.showSettings = false
        }

        ConfirmationOverlay {
            id: confirmation
            anchors.fill: parent
            visible: root.viewModel.pendingConfirmation.length > 0
            z: 50
            confirmation: root.viewModel.confirmation
            onConfirmed: root.viewModel.confirm()
            onCancelled: root.viewModel.cancelConfirmation()
            onVisibleChanged: if (visible) focusConfirm(); else if (header.ports) ports.focusList()
        }
    }
}
