// A settings toggle reaches the rows: the view model re-reads what a row shows.
import QtQuick
import QtTest
import "../../qml"

Item {
    id: scene
    width: 700
    height: 480

    Component {
        id: viewComponent
        SettingsView { anchors.fill: parent; panel: ({}) }
    }

    TestCase {
        name: "SettingsReachTheRows"
        when: windowShown

        function findText(item, value) {
            if (item.text === value) return item
            const kids = item.contentItem && item.contentItem !== item ? [item.contentItem] : []
            for (let i = 0; i < item.children.length; ++i) kids.push(item.children[i])
            for (let j = 0; j < kids.length; ++j) {
                const found = findText(kids[j], value)
                if (found) return found
            }
            return null
        }

        function test_cpuAndDensity() {
            const model = fixture.viewModel()
            const settings = fixture.settingsFor(model)
            const view = createTemporaryObject(viewComponent, scene, { settings: settings })
            compare(model.displayFields.cpu, false)
            mouseClick(findText(view, "CPU"))
            compare(model.displayFields.cpu, true)
            compare(settings.fields.cpu, true)
            mouseClick(findText(view, "Compact"))
            compare(model.rowDensity, "compact")
        }
    }
}
