// The panel's colours, type and spacing in one place.
pragma Singleton

import QtQuick

QtObject {
    readonly property color background: "#16171b"
    readonly property color raised: "#1e2025"
    readonly property color raisedHover: "#262930"
    readonly property color selected: "#233447"
    readonly property color line: "#2c2f36"
    readonly property color ink: "#eceef2"
    readonly property color mutedInk: "#9aa0ab"
    readonly property color faintInk: "#6d737e"
    readonly property color accent: "#5cc8ff"
    readonly property color accentInk: "#0b1420"
    readonly property color danger: "#ff6b6b"
    readonly property color warning: "#f5b86a"
    readonly property color success: "#5ad19a"
    readonly property color focusRing: "#5cc8ff"

    readonly property string sans: "Inter"
    readonly property string mono: "JetBrains Mono"
    readonly property int small: 11
    readonly property int body: 13
    readonly property int title: 17
    readonly property int radius: 10

    // The colour name an icon is drawn in, for the icon provider.
    function iconSource(name, tint) {
        return "image://icon/" + name + "?color=" + encodeURIComponent(String(tint))
    }
}
