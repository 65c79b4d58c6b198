// A choice of a few words, one chosen.
pragma ComponentBehavior: Bound
import QtQuick

Row {
    id: segmented

    // [{ value, text }]
    property var options: []
    property string value
    property string name
    signal chosen(string value)

    spacing: 2
    Accessible.role: Accessible.Grouping
    Accessible.name: name

    Repeater {
        model: segmented.options
        delegate: Rectangle {
            id: option
            required property var modelData
            readonly property bool active: segmented.value === option.modelData.value

            width: optionLabel.implicitWidth + 18
            height: 24
            radius: 7
            color: active ? Theme.selected : mouse.containsMouse ? Theme.raisedHover : Theme.raised
            border.width: activeFocus ? 2 : 0
            border.color: Theme.focusRing
            activeFocusOnTab: true
            Accessible.role: Accessible.RadioButton
            Accessible.name: modelData.text
            Accessible.checkable: true
            Accessible.checked: active
            Accessible.onPressAction: segmented.chosen(option.modelData.value)
            Keys.onSpacePressed: segmented.chosen(option.modelData.value)
            Keys.onReturnPressed: segmented.chosen(option.modelData.value)

            Text {
                id: optionLabel
                anchors.centerIn: parent
                text: option.modelData.text
                color: option.active ? Theme.accent : Theme.ink
                font.family: Theme.sans
                font.pixelSize: 12
                font.weight: option.active ? Font.DemiBold : Font.Normal
            }
            MouseArea {
                id: mouse
                anchors.fill: parent
                hoverEnabled: true
                cursorShape: Qt.PointingHandCursor
                onClicked: segmented.chosen(option.modelData.value)
            }
        }
    }
}
