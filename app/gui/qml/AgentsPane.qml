// The agent sessions by host application, with the provider filter, the summary, the prompt
// about a provider's connection and what the pane says when it is empty.
pragma ComponentBehavior: Bound
import QtQuick

Item {
    id: pane

    required property var viewModel
    readonly property var words: viewModel.agentsPane

    Row {
        id: chips
        anchors { left: parent.left; top: parent.top }
        spacing: 6
        Repeater {
            model: [{ raw: "all", name: "All", count: pane.words.allCount },
                    { raw: "codex", name: "Codex", count: pane.words.codexCount },
                    { raw: "claude", name: "Claude", count: pane.words.claudeCount }]
            delegate: Chip {
                required property var modelData
                text: modelData.name
                count: String(modelData.count || 0)
                active: pane.viewModel.agentFilter === modelData.raw
                onClicked: pane.viewModel.agentFilter = modelData.raw
            }
        }
    }
    Column {
        id: summary
        anchors { left: parent.left; right: parent.right; top: chips.bottom; topMargin: 8 }
        // The empty state says it already.
        opacity: list.count > 0 ? 1 : 0
        Text {
            width: parent.width
            text: pane.words.summary || ""
            color: Theme.ink
            font.family: Theme.sans
            font.pixelSize: 12
            font.weight: Font.Medium
            elide: Text.ElideRight
        }
        Text {
            width: parent.width
            visible: !!pane.words.stateLine
            text: pane.words.stateLine || ""
            color: Theme.mutedInk
            font.family: Theme.sans
            font.pixelSize: Theme.small
            elide: Text.ElideRight
        }
    }

    ListView {
        id: list
        anchors { left: parent.left; right: parent.right; top: summary.bottom; topMargin: 8; bottom: footer.top; bottomMargin: 6 }
        clip: true
        spacing: 4
        model: pane.viewModel.agents
        boundsBehavior: Flickable.StopAtBounds
        activeFocusOnTab: true
        Accessible.role: Accessible.List
        Accessible.name: pane.words.summary || ""
        section.property: "sectionTitle"
        section.delegate: Text {
            required property string section
            width: ListView.view.width
            height: 24
            verticalAlignment: Text.AlignBottom
            bottomPadding: 4
            text: section
            color: Theme.faintInk
            font.family: Theme.sans
            font.pixelSize: 10
            font.weight: Font.DemiBold
            font.capitalization: Font.AllUppercase
        }
        delegate: AgentRow {
            width: ListView.view.width
            expanded: pane.viewModel.expandedAgentSessionID === sessionID
            focusLabel: pane.viewModel.agentFocusLabelByID[sessionID] || ""
            onToggled: pane.viewModel.expandedAgentSessionID = expanded ? "" : sessionID
            onFocusApp: pane.viewModel.focusAgentHost(sessionID)
            onStop: pane.viewModel.requestStopAgent(sessionID)
            onViewPorts: pane.viewModel.scopeToAgent(sessionID)
            onViewProviderPorts: pane.viewModel.viewProviderPorts(sessionID)
        }
    }

    EmptyState {
        visible: list.count === 0 && title.length > 0
        anchors { left: parent.left; right: parent.right; verticalCenter: list.verticalCenter; margins: 40 }
        title: pane.words.empty ? pane.words.empty.title || "" : ""
        detail: pane.words.empty ? pane.words.empty.detail || "" : ""
        actions: pane.words.empty ? pane.words.empty.actions || [] : []
        onAction: function(name) { pane.viewModel.performAgentsEmptyStateAction(name) }
    }

    Text {
        id: footer
        anchors { left: parent.left; leftMargin: 4; right: connect.left; rightMargin: 8; bottom: parent.bottom }
        height: 28
        verticalAlignment: Text.AlignVCenter
        text: pane.words.footer || ""
        color: Theme.mutedInk
        font.family: Theme.sans
        font.pixelSize: Theme.small
        elide: Text.ElideRight
    }
    // A provider not connected yet: connect it from here.
    PlainButton {
        id: connect
        anchors { right: parent.right; verticalCenter: footer.verticalCenter }
        visible: !!pane.words.promptAction
        width: visible ? implicitWidth : 0
        icon: "plug"
        text: pane.words.promptAction || ""
        onClicked: pane.viewModel.connectProvider(pane.words.promptProvider)
    }
}
