// One listening port: the port, the process and what it is, with the facts the settings choose.
import QtQuick

Rectangle {
    id: row

    required property string rowID
    required property int port
    required property string processName
    required property int pid
    required property var classificationLabel
    required property string bindBadge
    required property bool isHidden
    required property var poolSize
    required property var agentProvider
    required property var hostName
    required property var projectName
    required property var executablePath
    required property var cpuText
    required property string activity
    required property string activityLabel
    required property var memoryText
    required property string uptimeText
    required property var focusLabel
    required property var openableURL
    required property string tooltip
    required property string detailLine

    property var fields: ({})
    property bool compact: false
    property bool selected: false
    signal activated
    signal menuRequested

    implicitHeight: compact ? 36 : 48
    radius: Theme.radius
    color: selected ? Theme.selected : mouse.containsMouse ? Theme.raisedHover : Theme.raised
    border.width: selected && activeFocus ? 2 : 0
    border.color: Theme.focusRing
    Accessible.role: Accessible.ListItem
    Accessible.name: "Port " + port + ", " + processName + (classificationLabel ? ", " + classificationLabel : "")
    Accessible.description: tooltip
    Accessible.selected: selected

    readonly property color activityColor: activity === "high" ? Theme.danger
                                         : activity === "medium" ? Theme.warning
                                         : activity === "low" ? Theme.success : Theme.faintInk

    Rectangle {
        id: light
        visible: row.fields.power === true
        anchors { left: parent.left; leftMargin: 10; verticalCenter: parent.verticalCenter }
        width: 7
        height: 7
        radius: 3.5
        color: row.activityColor
        Accessible.role: Accessible.Indicator
        Accessible.name: row.activityLabel
    }
    Text {
        id: portNumber
        visible: row.fields.port !== false
        anchors { left: light.visible ? light.right : parent.left; leftMargin: light.visible ? 8 : 12
                  verticalCenter: parent.verticalCenter }
        width: visible ? 58 : 0
        text: String(row.port)
        color: Theme.accent
        font.family: Theme.mono
        font.pixelSize: 14
        font.weight: Font.DemiBold
    }
    Column {
        anchors { left: portNumber.right; leftMargin: 4; right: facts.left; rightMargin: 10
                  verticalCenter: parent.verticalCenter }
        spacing: 1
        Row {
            width: parent.width
            spacing: 6
            Text {
                id: name
                width: Math.min(implicitWidth, parent.width - (badge.visible ? badge.width + 6 : 0) - (pool.visible ? pool.width + 6 : 0))
                text: row.processName
                color: row.isHidden ? Theme.mutedInk : Theme.ink
                font.family: Theme.sans
                font.pixelSize: 13
                elide: Text.ElideRight
            }
            Rectangle {
                id: pool
                visible: row.poolSize > 1
                width: poolLabel.implicitWidth + 10
                height: 16
                radius: 8
                color: "#2a2d34"
                anchors.verticalCenter: parent.verticalCenter
                Text {
                    id: poolLabel
                    anchors.centerIn: parent
                    text: "×" + row.poolSize
                    color: Theme.mutedInk
                    font.family: Theme.mono
                    font.pixelSize: 10
                }
            }
            Rectangle {
                id: badge
                visible: !!row.classificationLabel
                width: badgeLabel.implicitWidth + 10
                height: 16
                radius: 8
                color: "#1d3142"
                anchors.verticalCenter: parent.verticalCenter
                Text {
                    id: badgeLabel
                    anchors.centerIn: parent
                    text: row.classificationLabel || ""
                    color: Theme.accent
                    font.family: Theme.sans
                    font.pixelSize: 10
                    font.weight: Font.Medium
                }
            }
        }
        Text {
            width: parent.width
            visible: !row.compact && text.length > 0
            text: row.detailLine
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: Theme.small
            elide: Text.ElideMiddle
        }
    }
    Row {
        id: facts
        anchors { right: parent.right; rightMargin: 10; verticalCenter: parent.verticalCenter }
        spacing: 10
        Text {
            visible: row.fields.cpu === true && !!row.cpuText
            text: row.cpuText || ""
            color: Theme.mutedInk
            font.family: Theme.mono
            font.pixelSize: Theme.small
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            visible: row.fields.memory === true && !!row.memoryText
            text: row.memoryText || ""
            color: Theme.mutedInk
            font.family: Theme.mono
            font.pixelSize: Theme.small
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            visible: row.fields.uptime === true
            text: row.uptimeText
            color: Theme.mutedInk
            font.family: Theme.mono
            font.pixelSize: Theme.small
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            visible: row.fields.powerLabels === true
            text: row.activityLabel
            color: row.activityColor
            font.family: Theme.sans
            font.pixelSize: Theme.small
            anchors.verticalCenter: parent.verticalCenter
        }
        Rectangle {
            width: bindLabel.implicitWidth + 12
            height: 18
            radius: 9
            color: "#24262c"
            anchors.verticalCenter: parent.verticalCenter
            Text {
                id: bindLabel
                anchors.centerIn: parent
                text: row.bindBadge
                color: Theme.mutedInk
                font.family: Theme.sans
                font.pixelSize: 10
            }
        }
        IconButton {
            icon: "chevron-down"
            help: "Actions"
            tint: Theme.mutedInk
            width: 24
            height: 24
            activeFocusOnTab: false
            anchors.verticalCenter: parent.verticalCenter
            onClicked: row.menuRequested()
        }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        anchors.rightMargin: 40
        hoverEnabled: true
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        onClicked: function(event) {
            row.activated()
            if (event.button === Qt.RightButton) row.menuRequested()
        }
        onDoubleClicked: row.menuRequested()
    }
    ToolTipText {
        shown: mouse.containsMouse
        text: row.tooltip
    }
}
