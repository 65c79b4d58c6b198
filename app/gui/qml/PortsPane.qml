// The listening ports: filter chips, the rows, what the list says when it is empty, and the
// footer with the visible stop. Up and Down select, O opens, T focuses, K stops.
pragma ComponentBehavior: Bound
import QtQuick

Item {
    id: pane

    required property var viewModel
    required property var panel
    property string selectedID
    property string menuRowID
    readonly property bool menuOpen: menuRowID.length > 0

    function focusList() { list.forceActiveFocus() }
    function moveSelection(delta) {
        closeMenu()
        selectedID = viewModel.nextSelection(selectedID, delta)
        const index = viewModel.listeners.indexOf(selectedID)
        if (index >= 0) list.positionViewAtIndex(index, ListView.Contain)
        list.forceActiveFocus()
    }
    function openMenu(rowID) {
        selectedID = rowID
        menuRowID = rowID
        const index = viewModel.listeners.indexOf(rowID)
        const item = list.itemAtIndex(index)
        const at = item ? item.mapToItem(pane, item.width - menu.width - 8, item.height) : Qt.point(0, 0)
        menu.x = Math.max(8, at.x)
        menu.y = at.y + menu.height > pane.height - 8 ? at.y - item.height - menu.height : at.y
        menu.title = viewModel.actionMenuTitle(rowID)
        menu.items = viewModel.actionMenu(rowID)
        menu.open()
    }
    function closeMenu() {
        if (!menuOpen) return false
        menuRowID = ""
        list.forceActiveFocus()
        return true
    }
    function perform(item) {
        const rowID = menuRowID
        closeMenu()
        switch (item.action) {
        case "openInBrowser": panel.openURL(item.payload); break
        case "copyURL":
        case "copyPort":
        case "copyDetails": panel.copy(item.payload); break
        default: viewModel.performMenuAction(rowID, item.action)
        }
    }
    function keyAction(key) {
        if (selectedID.length === 0) return false
        const done = viewModel.keyboardAction(selectedID, key)
        if (done.kind === "open") panel.openURL(done.url)
        return done.handled === true
    }

    Column {
        id: chipRail
        anchors { left: parent.left; right: parent.right; top: parent.top }
        spacing: 8

        Flickable {
            width: parent.width
            height: 26
            contentWidth: chips.implicitWidth
            clip: true
            flickableDirection: Flickable.HorizontalFlick
            Row {
                id: chips
                spacing: 6
                Repeater {
                    model: pane.viewModel.chips
                    delegate: Chip {
                        required property var modelData
                        text: modelData.name
                        active: pane.viewModel.filter === modelData.raw
                        stale: modelData.stale === true
                        onClicked: {
                            pane.viewModel.filter = modelData.raw
                            pane.viewModel.persistLastUsedFilter()
                        }
                    }
                }
            }
        }
    }

    ListView {
        id: list
        anchors { left: parent.left; right: parent.right; top: chipRail.bottom; topMargin: 8; bottom: footer.top; bottomMargin: 6 }
        clip: true
        spacing: 4
        model: pane.viewModel.listeners
        boundsBehavior: Flickable.StopAtBounds
        activeFocusOnTab: true
        Accessible.role: Accessible.List
        Accessible.name: pane.viewModel.countText
        Keys.onUpPressed: pane.moveSelection(-1)
        Keys.onDownPressed: pane.moveSelection(1)
        Keys.onReturnPressed: if (pane.selectedID.length > 0) pane.openMenu(pane.selectedID)
        Keys.onPressed: function(event) {
            if (event.modifiers & (Qt.ControlModifier | Qt.AltModifier | Qt.MetaModifier)) return
            if (event.text.length === 1 && pane.keyAction(event.text)) event.accepted = true
        }
        delegate: PortRow {
            width: ListView.view.width
            fields: pane.viewModel.displayFields
            compact: pane.viewModel.rowDensity === "compact"
            selected: pane.selectedID === rowID
            onActivated: { pane.selectedID = rowID; pane.closeMenu(); list.forceActiveFocus() }
            onMenuRequested: pane.openMenu(rowID)
        }
    }

    EmptyState {
        visible: list.count === 0 && title.length > 0
        anchors { left: parent.left; right: parent.right; verticalCenter: list.verticalCenter; margins: 40 }
        title: pane.viewModel.emptyState.title || ""
        detail: pane.viewModel.emptyState.detail || ""
        actions: pane.viewModel.emptyState.actions || []
        onAction: function(name) { pane.viewModel.performEmptyStateAction(name) }
    }

    Item {
        id: footer
        anchors { left: parent.left; right: parent.right; bottom: parent.bottom }
        height: 28
        Text {
            anchors { left: parent.left; leftMargin: 4; right: stopVisible.left; rightMargin: 8; verticalCenter: parent.verticalCenter }
            text: pane.viewModel.footerText
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: Theme.small
            elide: Text.ElideRight
        }
        PlainButton {
            id: stopVisible
            anchors { right: parent.right; verticalCenter: parent.verticalCenter }
            visible: list.count > 0
            icon: "circle-stop"
            text: "Stop visible"
            help: pane.viewModel.visibleStopHelp
            destructive: true
            onClicked: pane.viewModel.offerStopVisible()
        }
    }

    ActionMenu {
        id: menu
        visible: pane.menuOpen
        z: 10
        onChosen: function(item) { pane.perform(item) }
        onDismissed: pane.closeMenu()
    }
    MouseArea {
        anchors.fill: parent
        visible: pane.menuOpen
        z: 9
        onClicked: pane.closeMenu()
    }
}
