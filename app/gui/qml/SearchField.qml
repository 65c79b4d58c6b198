// The search box of both panes; the usual editing keys (Ctrl+A, C, X, V) work as in any field.
import QtQuick

Rectangle {
    id: field

    property alias text: input.text
    property string placeholder
    signal edited(string text)
    signal moveSelection(int delta)

    implicitHeight: 28
    radius: 8
    color: Theme.raised
    border.width: input.activeFocus ? 2 : 1
    border.color: input.activeFocus ? Theme.focusRing : Theme.line

    function focusField() { input.forceActiveFocus() }

    Icon {
        id: glass
        anchors { left: parent.left; leftMargin: 8; verticalCenter: parent.verticalCenter }
        name: "search"
        tint: Theme.mutedInk
        size: 14
    }
    TextInput {
        id: input
        anchors { left: glass.right; leftMargin: 6; right: clear.left; rightMargin: 4; verticalCenter: parent.verticalCenter }
        color: Theme.ink
        selectionColor: Theme.selected
        selectedTextColor: Theme.ink
        font.family: Theme.sans
        font.pixelSize: 12
        clip: true
        selectByMouse: true
        activeFocusOnTab: true
        Accessible.role: Accessible.EditableText
        Accessible.name: field.placeholder
        onTextEdited: field.edited(text)
        Keys.onDownPressed: field.moveSelection(1)
        Keys.onUpPressed: field.moveSelection(-1)
        Text {
            anchors.fill: parent
            visible: input.text.length === 0
            text: field.placeholder
            color: Theme.faintInk
            font: input.font
            verticalAlignment: Text.AlignVCenter
        }
    }
    IconButton {
        id: clear
        visible: input.text.length > 0
        anchors { right: parent.right; rightMargin: 2; verticalCenter: parent.verticalCenter }
        width: 22
        height: 22
        icon: "x"
        help: "Clear search"
        tint: Theme.mutedInk
        onClicked: { input.clear(); field.edited("") }
    }
}
