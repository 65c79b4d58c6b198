// The panel's header: the two panes, the count, the exact-agent scope, settings; below it the
// search and, for ports, the sort order and the system rows.
pragma ComponentBehavior: Bound
import QtQuick

Item {
    id: header

    required property var viewModel
    property bool settingsShown: false
    property bool sortMenuShown: false
    readonly property bool ports: viewModel.panelMode === "ports"
    signal settingsToggled
    signal moveSelection(int delta)

    implicitHeight: 92

    function focusSearch() { search.focusField() }

    Row {
        id: titleRow
        anchors { left: parent.left; top: parent.top; topMargin: 14 }
        spacing: 12
        Segmented {
            name: "Panes"
            value: header.viewModel.panelMode
            options: [{ value: "ports", text: "Ports" }, { value: "agents", text: "Agents" }]
            onChosen: function(value) { header.viewModel.selectPanelMode(value) }
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            text: header.viewModel.countText
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: 12
            anchors.verticalCenter: parent.verticalCenter
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
        Rectangle {
            visible: header.viewModel.scopeChipText.length > 0
            width: scopeLabel.implicitWidth + 34
            height: 22
            radius: 11
            color: Theme.selected
            anchors.verticalCenter: parent.verticalCenter
            Accessible.role: Accessible.Button
            Accessible.name: header.viewModel.scopeChipHelp
            Accessible.onPressAction: header.viewModel.clearAgentScope()
            Text {
                id: scopeLabel
                anchors { left: parent.left; leftMargin: 10; verticalCenter: parent.verticalCenter }
                text: header.viewModel.scopeChipText
                color: Theme.accent
                font.family: Theme.sans
                font.pixelSize: 11
            }
            Icon {
                anchors { right: parent.right; rightMargin: 8; verticalCenter: parent.verticalCenter }
                name: "x"
                size: 12
                tint: Theme.accent
            }
            MouseArea {
                id: scopeMouse
                anchors.fill: parent
                hoverEnabled: true
                cursorShape: Qt.PointingHandCursor
                onClicked: header.viewModel.clearAgentScope()
            }
            ToolTipText { shown: scopeMouse.containsMouse; text: header.viewModel.scopeChipHelp }
        }
    }
    Row {
        anchors { right: parent.right; verticalCenter: titleRow.verticalCenter }
        spacing: 4
        Text {
            visible: header.ports
            text: header.viewModel.lastScannedText
            color: Theme.faintInk
            font.family: Theme.sans
            font.pixelSize: 10
            anchors.verticalCenter: parent.verticalCenter
        }
        IconButton {
            icon: "settings"
            help: "Settings"
            checked: header.settingsShown
            onClicked: header.settingsToggled()
        }
    }

    Row {
        id: searchRow
        anchors { left: parent.left; right: parent.right; top: titleRow.bottom; topMargin: 12 }
        spacing: 6
        SearchField {
            id: search
            width: parent.width - (header.ports ? sort.width + system.width + 12 : 0)
            placeholder: header.ports ? "Search ports, processes, projects" : "Search agents"
            text: header.viewModel.searchText
            onEdited: function(value) { header.viewModel.searchText = value }
            onMoveSelection: function(delta) { header.moveSelection(delta) }
        }
        IconButton {
            id: sort
            visible: header.ports
            icon: "arrow-up-down"
            help: "Sort by " + header.viewModel.sortModeName
            checked: header.sortMenuShown
            onClicked: header.sortMenuShown = !header.sortMenuShown
        }
        IconButton {
            id: system
            visible: header.ports
            icon: "layers"
            help: header.viewModel.showSystem ? "Hide system & background listeners" : "Show system & background listeners"
            checked: header.viewModel.showSystem
            onClicked: header.viewModel.showSystem = !header.viewModel.showSystem
        }
    }

    Rectangle {
        id: sortMenu
        visible: header.sortMenuShown
        z: 20
        anchors { right: parent.right; rightMargin: 34; top: searchRow.bottom; topMargin: 4 }
        width: 160
        height: sortColumn.implicitHeight + 12
        radius: 10
        color: "#202228"
        border.color: Theme.line
        Accessible.role: Accessible.PopupMenu
        Accessible.name: "Sort"
        Column {
            id: sortColumn
            x: 6
            y: 6
            width: parent.width - 12
            Repeater {
                model: header.viewModel.sortModes
                delegate: Rectangle {
                    id: sortItem
                    required property var modelData
                    width: sortColumn.width
                    height: 28
                    radius: 6
                    color: sortMouse.containsMouse ? Theme.selected : "transparent"
                    Accessible.role: Accessible.MenuItem
                    Accessible.name: modelData.name
                    Accessible.checked: header.viewModel.sortMode === modelData.raw
                    Text {
                        anchors { left: parent.left; leftMargin: 10; verticalCenter: parent.verticalCenter }
                        text: sortItem.modelData.name
                        color: Theme.ink
                        font.family: Theme.sans
                        font.pixelSize: 12
                    }
                    Icon {
                        visible: header.viewModel.sortMode === sortItem.modelData.raw
                        anchors { right: parent.right; rightMargin: 8; verticalCenter: parent.verticalCenter }
                        name: "check"
                        size: 14
                        tint: Theme.accent
                    }
                    MouseArea {
                        id: sortMouse
                        anchors.fill: parent
                        hoverEnabled: true
                        onClicked: {
                            header.viewModel.sortMode = sortItem.modelData.raw
                            header.sortMenuShown = false
                        }
                    }
                }
            }
        }
    }
}
