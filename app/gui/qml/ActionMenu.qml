// The actions of one row, as a small menu beside it; Up and Down move, Return acts, Escape
// closes. Destructive items stand after a divider and only ask for a confirmation.
pragma ComponentBehavior: Bound
import QtQuick

Rectangle {
    id: menu

    property string title
    // [{ action, title, hint, destructive, dividerBefore, payload }]
    property var items: []
    property int highlighted: 0
    signal chosen(var item)
    signal dismissed

    width: 240
    height: column.implicitHeight + 12
    radius: 10
    color: "#202228"
    border.color: Theme.line
    Accessible.role: Accessible.PopupMenu
    Accessible.name: title

    function open() {
        highlighted = 0
        forceActiveFocus()
    }

    Keys.onUpPressed: highlighted = (highlighted + items.length - 1) % items.length
    Keys.onDownPressed: highlighted = (highlighted + 1) % items.length
    Keys.onReturnPressed: if (items.length > 0) chosen(items[highlighted])
    Keys.onEnterPressed: if (items.length > 0) chosen(items[highlighted])

    Column {
        id: column
        x: 6
        y: 6
        width: parent.width - 12
        Repeater {
            model: menu.items
            delegate: Column {
                id: entry
                required property var modelData
                required property int index
                width: column.width

                Rectangle {
                    visible: entry.modelData.dividerBefore
                    width: parent.width
                    height: 9
                    color: "transparent"
                    Rectangle { anchors.centerIn: parent; width: parent.width - 8; height: 1; color: Theme.line }
                }
                Rectangle {
                    width: parent.width
                    height: 30
                    radius: 6
                    color: menu.highlighted === entry.index ? Theme.selected : "transparent"
                    Accessible.role: Accessible.MenuItem
                    Accessible.name: entry.modelData.title
                    Accessible.description: entry.modelData.hint
                    Accessible.onPressAction: menu.chosen(entry.modelData)
                    Text {
                        anchors { left: parent.left; leftMargin: 10; verticalCenter: parent.verticalCenter }
                        text: entry.modelData.title
                        color: entry.modelData.destructive ? Theme.danger : Theme.ink
                        font.family: Theme.sans
                        font.pixelSize: 12
                    }
                    Text {
                        anchors { right: parent.right; rightMargin: 10; verticalCenter: parent.verticalCenter }
                        text: entry.modelData.hint
                        color: Theme.faintInk
                        font.family: Theme.sans
                        font.pixelSize: 10
                    }
                    MouseArea {
                        anchors.fill: parent
                        hoverEnabled: true
                        onEntered: menu.highlighted = entry.index
                        onClicked: menu.chosen(entry.modelData)
                    }
                }
            }
        }
    }
}
