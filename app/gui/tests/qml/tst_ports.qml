// The ports pane over a real view model: the keyboard map, the action menu, the confirmation
// flow, search and sort.
import QtQuick
import QtTest
import "../../qml"

Item {
    id: scene
    width: 700
    height: 420

    property var opened: []
    property var copied: []
    readonly property var panel: ({
        openURL: function(url) { scene.opened.push(url) },
        copy: function(text) { scene.copied.push(text) }
    })

    Component {
        id: paneComponent
        PortsPane { width: 660; height: 400; panel: scene.panel }
    }
    Component {
        id: overlayComponent
        ConfirmationOverlay { anchors.fill: parent }
    }

    TestCase {
        name: "PortsPane"
        when: windowShown

        property var pane
        property var model

        function init() {
            model = fixture.viewModel()
            pane = createTemporaryObject(paneComponent, scene, { viewModel: model })
            scene.opened = []
            scene.copied = []
            pane.focusList()
        }

        function test_arrowsWrapAndLettersAct() {
            compare(model.listeners.rowCount(), 2)
            keyClick(Qt.Key_Down)
            const first = pane.selectedID
            verify(first.length > 0, "the first press of down picks the first row")
            keyClick(Qt.Key_Up)
            verify(pane.selectedID !== first, "up from the first row wraps to the last")
            keyClick(Qt.Key_Up)
            compare(pane.selectedID, first)

            keyClick(Qt.Key_O)
            compare(scene.opened.length, 1)
            verify(scene.opened[0].indexOf("://localhost:") > 0)

            keyClick(Qt.Key_K)
            verify(model.pendingConfirmation === "kill" || model.pendingConfirmation === "stopPool")
            compare(fixture.signalled.length, 0, "K only asks")
        }

        function test_kOnAPoolAsksForThePoolStopThenConfirmStops() {
            // Rows by port: the pool on 5173 first.
            keyClick(Qt.Key_Down)
            keyClick(Qt.Key_K)
            compare(model.pendingConfirmation, "stopPool")
            const before = fixture.signalled.length
            const overlay = createTemporaryObject(overlayComponent, scene, { confirmation: model.confirmation })
            verify(overlay.confirmation.title.length > 0)
            model.confirm()
            tryVerify(function() { return fixture.signalled.length === before + 1 })
            compare(fixture.signalled[before], "pool")
            compare(model.pendingConfirmation, "")
        }

        function test_theActionMenuOffersTheRowsActions() {
            keyClick(Qt.Key_Down)
            keyClick(Qt.Key_Down)
            keyClick(Qt.Key_Return)
            verify(pane.menuOpen)
            const titles = model.actionMenu(pane.selectedID).map(function(item) { return item.title })
            compare(titles, ["Open in Browser", "Copy URL", "Copy Port", "Copy Details", "Kill Process", "Force Kill"])
            keyClick(Qt.Key_Down)
            keyClick(Qt.Key_Down)
            keyClick(Qt.Key_Return)  // Copy Port
            compare(scene.copied, ["8000"])
            verify(!pane.menuOpen)
        }

        function test_searchAndSortReachTheList() {
            model.searchText = "worker"
            compare(model.listeners.rowCount(), 1)
            compare(model.countText, "1 of 2")
            model.searchText = "nothing-like-it"
            compare(model.listeners.rowCount(), 0)
            compare(model.emptyState.title, "No matching listeners")
            model.performEmptyStateAction("Clear filters")
            compare(model.listeners.rowCount(), 2)
            model.sortMode = "memory"
            compare(model.sortModeName.length > 0, true)
        }
    }
}
