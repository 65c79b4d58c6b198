// A Lucide icon in one colour.
import QtQuick

Image {
    id: icon

    property string name
    property color tint: Theme.ink
    property int size: 16

    width: size
    height: size
    sourceSize.width: size * Screen.devicePixelRatio
    sourceSize.height: size * Screen.devicePixelRatio
    source: name ? Theme.iconSource(name, tint) : ""
    fillMode: Image.PreserveAspectFit
    smooth: true
    Accessible.ignored: true
}
