// What a pane says when it has no rows: a title, a detail and up to two actions.
pragma ComponentBehavior: Bound
import QtQuick

Column {
    id: empty

    property string title
    property string detail
    property var actions: []
    signal action(string name)

    spacing: 10
    Accessible.role: Accessible.StaticText
    Accessible.name: detail.length > 0 ? title + ". " + detail : title

    Text {
        width: empty.width
        text: empty.title
        color: Theme.ink
        font.family: Theme.sans
        font.pixelSize: 15
        font.weight: Font.DemiBold
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
    }
    Text {
        width: empty.width
        visible: empty.detail.length > 0
        text: empty.detail
        color: Theme.mutedInk
        font.family: Theme.sans
        font.pixelSize: 12
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
    }
    Row {
        anchors.horizontalCenter: parent.horizontalCenter
        spacing: 8
        Repeater {
            model: empty.actions
            delegate: PlainButton {
                required property string modelData
                required property int index
                text: modelData
                primary: index === 0
                onClicked: empty.action(modelData)
            }
        }
    }
}
