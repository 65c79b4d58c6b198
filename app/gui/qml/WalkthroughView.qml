// Four short pages before the list; the last one finishes onboarding.
pragma ComponentBehavior: Bound
import QtQuick

Item {
    id: walkthrough

    required property var panel
    property int page: 0
    readonly property var pages: [
        { eyebrow: "LOCAL LISTENERS", icon: "network",
          headline: "See what’s listening. Fix localhost faster.",
          body: "Every listening port on this machine, with the process behind it and what it is. Worker pools fold into one row; system listeners stay out of the way." },
        { eyebrow: "SEARCH & FILTERS", icon: "search",
          headline: "Find the right process, fast.",
          body: "Type a port, a process or a project. Chips narrow the list to a runtime or to the ports your agents started." },
        { eyebrow: "SAFE ACTIONS", icon: "circle-stop",
          headline: "Open, copy, or stop a server. Safely.",
          body: "Stops always ask first, and never reach a shell, an editor, a system process or a process that took over a reused pid." },
        { eyebrow: "AGENT-ATTRIBUTED PORTS", icon: "bot",
          headline: "Know which agent started a server.",
          body: "Claude Code and Codex sessions show with their state, and the ports their processes own are one click away." }]

    function pad(n) { return n < 10 ? "0" + n : String(n) }

    Column {
        anchors.centerIn: parent
        width: 460
        spacing: 12

        Text {
            text: walkthrough.pad(walkthrough.page + 1) + " / " + walkthrough.pad(walkthrough.pages.length)
            color: Theme.faintInk
            font.family: Theme.mono
            font.pixelSize: 11
            anchors.horizontalCenter: parent.horizontalCenter
        }
        Icon {
            anchors.horizontalCenter: parent.horizontalCenter
            name: walkthrough.pages[walkthrough.page].icon
            size: 28
            tint: Theme.accent
        }
        Text {
            width: parent.width
            text: walkthrough.pages[walkthrough.page].eyebrow
            color: Theme.accent
            font.family: Theme.sans
            font.pixelSize: 11
            font.weight: Font.DemiBold
            font.letterSpacing: 1
            horizontalAlignment: Text.AlignHCenter
        }
        Text {
            width: parent.width
            text: walkthrough.pages[walkthrough.page].headline
            color: Theme.ink
            font.family: Theme.sans
            font.pixelSize: 20
            font.weight: Font.DemiBold
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        Text {
            width: parent.width
            text: walkthrough.pages[walkthrough.page].body
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: 13
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
        }
        Row {
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 10
            PlainButton {
                visible: walkthrough.page > 0
                text: "Back"
                onClicked: walkthrough.page -= 1
            }
            PlainButton {
                id: next
                primary: true
                text: walkthrough.page + 1 < walkthrough.pages.length ? "Next" : "Show My Ports"
                onClicked: {
                    if (walkthrough.page + 1 < walkthrough.pages.length) walkthrough.page += 1
                    else walkthrough.panel.finishWalkthrough()
                }
            }
        }
    }
    Component.onCompleted: next.forceActiveFocus()
}
