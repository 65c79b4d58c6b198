// The panel's first layout: the listening ports beside the agent sessions, or the first-run
// surfaces until they are through. Every text and decision comes from the models; this file only
// lays out and binds.
pragma ComponentBehavior: Bound

import QtQuick

Item {
    id: root

    required property var viewModel
    required property var panel

    readonly property color ink: "#eceef2"
    readonly property color mutedInk: "#9aa0ab"
    readonly property color accent: "#5cc8ff"
    readonly property color line: "#2c2f36"

    width: 700
    height: 480

    component PlainButton: Rectangle {
        id: button

        property string text
        property bool primary: false
        signal clicked

        implicitWidth: label.implicitWidth + 28
        implicitHeight: 30
        radius: 8
        color: button.primary ? (mouse.pressed ? "#3aa7e0" : root.accent) : (mouse.containsMouse ? "#34373f" : "#2a2d34")
        border.color: button.activeFocus ? root.accent : "transparent"
        activeFocusOnTab: true
        Accessible.role: Accessible.Button
        Accessible.name: text
        Keys.onReturnPressed: button.clicked()
        Keys.onSpacePressed: button.clicked()

        Text {
            id: label
            anchors.centerIn: parent
            text: button.text
            color: button.primary ? "#0b1420" : root.ink
            font.pixelSize: 13
            font.weight: Font.Medium
        }
        MouseArea {
            id: mouse
            anchors.fill: parent
            hoverEnabled: true
            onClicked: button.clicked()
        }
    }

    Rectangle {
        id: card
        anchors.fill: parent
        radius: root.panel.windowMode ? 0 : 22
        color: "#17181c"
        border.color: root.panel.windowMode ? "transparent" : "#33363d"
        border.width: 1
        clip: true
        opacity: root.panel.revealed ? 1 : 0

        Behavior on opacity {
            NumberAnimation {
                duration: root.panel.revealDuration
                easing.type: root.panel.revealCurve === "reveal" ? Easing.BezierSpline
                           : root.panel.revealCurve === "easeIn" ? Easing.InQuad : Easing.OutQuad
                easing.bezierCurve: [0.23, 1.0, 0.32, 1.0, 1.0, 1.0]
            }
        }

        Item {
            id: header
            anchors { left: parent.left; right: parent.right; top: parent.top }
            height: 56

            Text {
                id: title
                anchors { left: parent.left; leftMargin: 22; verticalCenter: parent.verticalCenter }
                text: "Tidewatch"
                color: root.ink
                font.pixelSize: 17
                font.weight: Font.DemiBold
            }
            Text {
                anchors { left: title.right; leftMargin: 12; right: quitButton.left; rightMargin: 12
                          verticalCenter: parent.verticalCenter }
                text: root.panel.surface === "list" ? root.viewModel.stateMessage : ""
                color: root.mutedInk
                font.pixelSize: 12
                elide: Text.ElideRight
            }
            PlainButton {
                id: quitButton
                anchors { right: parent.right; rightMargin: 16; verticalCenter: parent.verticalCenter }
                text: "Quit Tidewatch"
                onClicked: root.panel.quit()
            }
            Rectangle {
                anchors { left: parent.left; right: parent.right; bottom: parent.bottom }
                height: 1
                color: root.line
            }
        }

        // First run: the offer to open at login, then a short welcome.
        Column {
            visible: root.panel.surface !== "list"
            anchors.centerIn: parent
            anchors.verticalCenterOffset: 20
            spacing: 14
            width: 460

            Text {
                width: parent.width
                text: root.panel.surface === "offer" ? "Open Tidewatch when you log in?"
                                                     : "See what’s listening. Fix localhost faster."
                color: root.ink
                font.pixelSize: 20
                font.weight: Font.DemiBold
                wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter
            }
            Text {
                width: parent.width
                text: root.panel.surface === "offer"
                      ? "It sits in the tray and watches your local ports and coding agents."
                      : "Every listening port with the process behind it, and the agents at work beside them."
                color: root.mutedInk
                font.pixelSize: 13
                wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter
            }
            Text {
                width: parent.width
                visible: text.length > 0
                text: root.panel.offerMessage
                color: "#f5b86a"
                font.pixelSize: 12
                wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter
            }
            Row {
                anchors.horizontalCenter: parent.horizontalCenter
                spacing: 10
                PlainButton {
                    visible: root.panel.surface === "offer"
                    text: "Not now"
                    onClicked: root.panel.declineOffer()
                }
                PlainButton {
                    primary: true
                    text: root.panel.surface === "offer" ? "Open at Login" : "Continue"
                    onClicked: root.panel.surface === "offer" ? root.panel.enableAtLogin()
                                                              : root.panel.finishWalkthrough()
                }
            }
        }

        // The list: ports on the left, agent sessions on the right.
        Row {
            visible: root.panel.surface === "list"
            anchors { left: parent.left; right: parent.right; top: header.bottom; bottom: parent.bottom
                      margins: 14 }
            spacing: 14

            Column {
                width: (parent.width - parent.spacing) * 0.6
                height: parent.height
                spacing: 8

                Text {
                    text: "Listening ports"
                    color: root.mutedInk
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                    font.capitalization: Font.AllUppercase
                }
                ListView {
                    id: ports
                    width: parent.width
                    height: parent.height - 24
                    clip: true
                    spacing: 4
                    model: root.viewModel.listeners
                    delegate: Rectangle {
                        id: portRow
                        required property int port
                        required property string processName
                        required property var classificationLabel
                        required property string bindBadge
                        required property var poolSize
                        required property var projectName

                        width: ports.width
                        height: 44
                        radius: 10
                        color: "#1f2126"

                        Text {
                            id: portNumber
                            anchors { left: parent.left; leftMargin: 12; verticalCenter: parent.verticalCenter }
                            width: 62
                            text: String(portRow.port)
                            color: root.accent
                            font.family: "JetBrains Mono"
                            font.pixelSize: 15
                            font.weight: Font.DemiBold
                        }
                        Column {
                            anchors { left: portNumber.right; right: badge.left; rightMargin: 8
                                      verticalCenter: parent.verticalCenter }
                            Text {
                                width: parent.width
                                text: portRow.processName + (portRow.poolSize > 1 ? " ×" + portRow.poolSize : "")
                                color: root.ink
                                font.pixelSize: 13
                                elide: Text.ElideRight
                            }
                            Text {
                                width: parent.width
                                text: portRow.projectName ? portRow.classificationLabel + " · " + portRow.projectName
                                                         : (portRow.classificationLabel || "")
                                color: root.mutedInk
                                font.pixelSize: 11
                                elide: Text.ElideRight
                            }
                        }
                        Text {
                            id: badge
                            anchors { right: parent.right; rightMargin: 12; verticalCenter: parent.verticalCenter }
                            text: portRow.bindBadge
                            color: root.mutedInk
                            font.pixelSize: 11
                        }
                    }
                }
            }

            Column {
                width: (parent.width - parent.spacing) * 0.4
                height: parent.height
                spacing: 8

                Text {
                    text: "Agents"
                    color: root.mutedInk
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                    font.capitalization: Font.AllUppercase
                }
                Text {
                    visible: agentList.count === 0
                    width: parent.width
                    text: "No coding agents at work."
                    color: root.mutedInk
                    font.pixelSize: 12
                    wrapMode: Text.WordWrap
                }
                ListView {
                    id: agentList
                    width: parent.width
                    height: parent.height - 24
                    clip: true
                    spacing: 4
                    model: root.viewModel.agents
                    delegate: Rectangle {
                        id: agentRow
                        required property string providerName
                        required property string stateText
                        required property string location
                        required property var projectName

                        width: agentList.width
                        height: 44
                        radius: 10
                        color: "#1f2126"

                        Column {
                            anchors { left: parent.left; right: parent.right; margins: 12
                                      verticalCenter: parent.verticalCenter }
                            Text {
                                width: parent.width
                                text: agentRow.providerName + " · " + agentRow.stateText
                                color: root.ink
                                font.pixelSize: 13
                                elide: Text.ElideRight
                            }
                            Text {
                                width: parent.width
                                text: agentRow.projectName ? agentRow.projectName : agentRow.location
                                color: root.mutedInk
                                font.pixelSize: 11
                                elide: Text.ElideRight
                            }
                        }
                    }
                }
            }
        }
    }
}
