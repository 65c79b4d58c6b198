// A small tooltip above its parent after a short hover.
import QtQuick

Rectangle {
    id: tip

    property bool shown: false
    property string text

    visible: opacity > 0
    opacity: shown && text.length > 0 ? 1 : 0
    z: 100
    width: Math.min(label.implicitWidth + 16, 320)
    height: label.implicitHeight + 10
    radius: 6
    color: "#0d0e10"
    border.color: Theme.line
    anchors.bottom: parent.top
    anchors.bottomMargin: 6
    anchors.horizontalCenter: parent.horizontalCenter

    Behavior on opacity {
        SequentialAnimation {
            PauseAnimation { duration: tip.shown ? 450 : 0 }
            NumberAnimation { duration: 90 }
        }
    }

    Text {
        id: label
        anchors.centerIn: parent
        width: Math.min(implicitWidth, 304)
        text: tip.text
        color: Theme.ink
        font.family: Theme.sans
        font.pixelSize: Theme.small
        wrapMode: Text.Wrap
    }
}
