import QtQuick
import Taskrack.Panel 1.0

// The rack: header, middle and footer. Every text and condition comes from `rack`, the view
// model; this file only arranges them.
Rectangle {
    id: root
    width: 968
    height: 240
    color: rack.palette.background
    gradient: rack.quiet ? null : glass
    border.width: 1
    border.color: rack.palette.border
    focus: true

    Gradient {
        id: glass
        GradientStop { position: 0.0; color: rack.palette.background }
        GradientStop { position: 1.0; color: rack.palette.backgroundEnd }
    }

    Connections {
        target: rack
        function onSearchFocusRequested() { searchInput.forceActiveFocus() }
        function onSearchBlurRequested() { root.forceActiveFocus() }
    }

    // --- Header -------------------------------------------------------------------------------
    Item {
        id: header
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 12
        height: 28

        Row {
            id: modePicker
            anchors.left: parent.left
            anchors.verticalCenter: parent.verticalCenter
            spacing: 2
            Accessible.name: rack.labels.modeHelp
            Repeater {
                model: rack.labels.modes
                delegate: Rectangle {
                    required property int index
                    required property string modelData
                    width: modeText.implicitWidth + 18
                    height: 24
                    radius: 6
                    color: rack.modeIndex === index ? rack.palette.accent : "transparent"
                    Text {
                        id: modeText
                        anchors.centerIn: parent
                        text: modelData
                        font.pixelSize: 12
                        font.weight: Font.DemiBold
                        color: rack.modeIndex === index ? rack.palette.card : rack.palette.secondaryText
                    }
                    MouseArea {
                        anchors.fill: parent
                        onClicked: rack.setMode(index)
                    }
                }
            }
        }

        Row {
            id: counts
            anchors.left: modePicker.right
            anchors.leftMargin: 14
            anchors.verticalCenter: parent.verticalCenter
            spacing: 10
            Repeater {
                model: [
                    { status: "working", count: rack.workingCount, label: rack.labels.working },
                    { status: "requiresInput", count: rack.inputCount, label: rack.labels.input },
                    { status: "error", count: rack.errorCount, label: rack.labels.error }
                ]
                delegate: Row {
                    required property var modelData
                    visible: modelData.count > 0
                    spacing: 4
                    Accessible.name: modelData.label + " " + modelData.count
                    RackSymbol {
                        width: 9; height: 9
                        anchors.verticalCenter: parent.verticalCenter
                        shape: "dot"
                        color: rack.palette.statusColor(modelData.status)
                    }
                    Text {
                        text: root.width < 900 ? modelData.count : modelData.count + " " + modelData.label
                        font.pixelSize: 11
                        color: rack.palette.secondaryText
                    }
                }
            }
        }

        Text {
            anchors.left: counts.right
            anchors.leftMargin: 12
            anchors.right: searchBox.left
            anchors.rightMargin: 12
            anchors.verticalCenter: parent.verticalCenter
            text: rack.statusLine
            elide: Text.ElideRight
            font.pixelSize: 11
            color: rack.palette.secondaryText
        }

        Rectangle {
            id: searchBox
            anchors.right: pageLabel.left
            anchors.rightMargin: pageLabel.text === "" ? 0 : 10
            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(230, header.width * 0.26)
            height: 26
            radius: 7
            color: rack.palette.card
            border.width: searchInput.activeFocus ? 2 : 1
            border.color: searchInput.activeFocus ? rack.palette.accent : rack.palette.border
            RackSymbol {
                id: searchMark
                x: 8
                width: 13; height: 13
                anchors.verticalCenter: parent.verticalCenter
                shape: "search"
                color: rack.palette.secondaryText
            }
            TextInput {
                id: searchInput
                objectName: "searchField"
                anchors.left: searchMark.right
                anchors.leftMargin: 6
                anchors.right: resultCount.left
                anchors.rightMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                clip: true
                text: rack.searchQuery
                font.pixelSize: 12
                color: rack.palette.text
                selectionColor: rack.palette.accent
                selectedTextColor: rack.palette.card
                onTextEdited: rack.searchQuery = text
                Accessible.name: rack.labels.searchPlaceholder
            }
            Text {
                anchors.fill: searchInput
                verticalAlignment: Text.AlignVCenter
                visible: searchInput.text === ""
                text: rack.labels.searchPlaceholder
                font.pixelSize: 12
                color: rack.palette.secondaryText
            }
            Text {
                id: resultCount
                anchors.right: parent.right
                anchors.rightMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                text: rack.searchResultText
                font.pixelSize: 11
                color: rack.palette.secondaryText
            }
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.IBeamCursor
                onClicked: searchInput.forceActiveFocus()
            }
        }

        Text {
            id: pageLabel
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            text: rack.pageText
            font.pixelSize: 11
            font.weight: Font.DemiBold
            color: rack.palette.secondaryText
        }
    }

    // --- Middle -------------------------------------------------------------------------------
    Item {
        id: middle
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: header.bottom
        anchors.bottom: footer.top
        anchors.leftMargin: 12
        anchors.rightMargin: 12
        anchors.topMargin: 10
        anchors.bottomMargin: 8

        ListView {
            id: rail
            visible: rack.content === "keys" && rack.projectMode
            width: visible ? Math.min(196, middle.width * 0.26) : 0
            height: parent.height
            clip: true
            spacing: 3
            interactive: false
            model: rack.projectRail
            currentIndex: -1
            delegate: Rectangle {
                required property int index
                required property string projectID
                required property string name
                required property string countText
                required property string sharedText
                required property string lastUsedText
                required property bool selected
                required property string status
                required property string dotShape
                required property string dotTint
                width: rail.width
                height: selected ? 64 : 24
                radius: 6
                color: selected ? rack.palette.selectionFill : "transparent"
                border.width: selected ? 1 : 0
                border.color: rack.palette.accent
                Accessible.name: [name, countText, sharedText, lastUsedText].filter(t => t !== "").join(", ")
                RackSymbol {
                    id: railDot
                    x: 8; y: 6
                    width: 12; height: 12
                    shape: dotShape !== "" ? dotShape : "dot"
                    color: dotShape !== "" ? rack.palette.tintColor(dotTint) : rack.palette.statusColor(status)
                }
                Text {
                    id: railName
                    anchors.left: railDot.right
                    anchors.leftMargin: 6
                    anchors.right: parent.right
                    anchors.rightMargin: 8
                    y: 4
                    text: name
                    elide: Text.ElideRight
                    font.pixelSize: 12
                    font.weight: selected ? Font.DemiBold : Font.Normal
                    color: rack.palette.text
                }
                Column {
                    visible: selected
                    anchors.left: railName.left
                    anchors.right: railName.right
                    anchors.top: railName.bottom
                    anchors.topMargin: 1
                    Repeater {
                        model: [countText, sharedText, lastUsedText].filter(t => t !== "")
                        delegate: Text {
                            required property string modelData
                            width: parent.width
                            text: modelData
                            elide: Text.ElideRight
                            font.pixelSize: 10
                            color: rack.palette.secondaryText
                        }
                    }
                }
                MouseArea {
                    anchors.fill: parent
                    onClicked: rack.selectProject(projectID)
                }
            }
            onCountChanged: positionViewAtIndex(0, ListView.Beginning)
        }

        Row {
            id: strip
            visible: rack.content === "keys"
            anchors.left: rail.right
            anchors.leftMargin: rail.visible ? 10 : 0
            anchors.right: parent.right
            height: parent.height
            spacing: 8
            Repeater {
                model: rack.keyStrip
                delegate: KeyFace {
                    required property int index
                    required property var model
                    width: (strip.width - strip.spacing * 5) / 6
                    height: strip.height
                    kind: model.kind
                    keyLabel: model.keyLabel
                    title: model.title !== undefined ? model.title : ""
                    detail: model.detail !== undefined ? model.detail : ""
                    status: model.status !== undefined ? model.status : ""
                    statusLabel: model.statusLabel !== undefined ? model.statusLabel : ""
                    selected: model.selected === true
                    worktree: model.worktree === true
                    lineage: model.lineage !== undefined ? model.lineage : ""
                    accessibleText: model.accessibleText !== undefined ? model.accessibleText : rack.labels.emptyKey
                    dotShape: model.dotShape !== undefined ? model.dotShape : ""
                    dotTint: model.dotTint !== undefined ? model.dotTint : ""
                    keyEnabled: model.enabled !== false
                    onChosen: rack.selectSlot(index)
                    onOpened: rack.openSlot(index)
                }
            }
        }

        // Loading, failure, empty lists and the empty search.
        Column {
            visible: ["loading", "failed", "empty", "activityEmpty", "searchEmpty"].indexOf(rack.content) >= 0
            anchors.centerIn: parent
            width: Math.min(parent.width, 560)
            spacing: 6
            Text {
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: rack.emptyTitle
                wrapMode: Text.Wrap
                font.pixelSize: 15
                font.weight: Font.DemiBold
                color: rack.palette.text
            }
            Text {
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: rack.emptyDetail
                wrapMode: Text.Wrap
                maximumLineCount: 2
                elide: Text.ElideRight
                font.pixelSize: 12
                color: rack.palette.secondaryText
            }
            Text {
                visible: text !== ""
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: rack.emptyHint
                font.pixelSize: 11
                color: rack.palette.secondaryText
            }
            Item { width: 1; height: 4 }
            Row {
                anchors.horizontalCenter: parent.horizontalCenter
                spacing: 8
                RackButton {
                    visible: rack.content === "empty"
                    text: rack.labels.openCodex
                    onClicked: rack.openProvider("codex")
                }
                RackButton {
                    visible: rack.content === "empty"
                    text: rack.labels.openClaude
                    onClicked: rack.openProvider("claudeDesktop")
                }
                RackButton {
                    visible: rack.content === "empty" || rack.content === "failed"
                    text: rack.labels.retry
                    primary: true
                    onClicked: rack.retry()
                }
                RackButton {
                    visible: rack.content === "activityEmpty"
                    text: rack.labels.showHistory
                    primary: true
                    onClicked: rack.setMode(2)
                }
            }
        }

        // The right-side switcher's setup.
        Column {
            visible: rack.content === "inputSetup"
            anchors.verticalCenter: parent.verticalCenter
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.leftMargin: 24
            anchors.rightMargin: 24
            spacing: 6
            Text {
                text: rack.labels.setupTitle
                font.pixelSize: 15
                font.weight: Font.DemiBold
                color: rack.palette.text
            }
            Text {
                text: rack.labels.setupRow
                font.pixelSize: 12
                font.weight: Font.DemiBold
                color: rack.palette.text
            }
            Text {
                width: parent.width
                text: rack.labels.setupDetail
                wrapMode: Text.Wrap
                font.pixelSize: 12
                color: rack.palette.secondaryText
            }
            Item { width: 1; height: 4 }
            Row {
                spacing: 8
                RackButton {
                    text: rack.labels.turnOn
                    primary: true
                    Accessible.description: rack.labels.setupHelp
                    onClicked: rack.turnOnSwitcher()
                }
                RackButton {
                    text: rack.labels.notNow
                    onClicked: rack.deferSwitcher()
                }
            }
        }

        // Enhanced Claude status.
        Column {
            visible: rack.content === "claudeSetup"
            anchors.verticalCenter: parent.verticalCenter
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.leftMargin: 24
            anchors.rightMargin: 24
            spacing: 5
            Row {
                spacing: 10
                Text {
                    text: rack.labels.claudeTitle
                    font.pixelSize: 15
                    font.weight: Font.DemiBold
                    color: rack.palette.text
                }
                Text {
                    anchors.bottom: parent.bottom
                    text: rack.labels.claudeCaption
                    font.pixelSize: 11
                    color: rack.palette.secondaryText
                }
            }
            Text {
                width: parent.width
                text: rack.labels.claudeBody
                wrapMode: Text.Wrap
                font.pixelSize: 12
                color: rack.palette.text
            }
            Text {
                width: parent.width
                text: rack.labels.claudePrivacy
                wrapMode: Text.Wrap
                font.pixelSize: 11
                color: rack.palette.secondaryText
            }
            Row {
                visible: rack.claudeError !== ""
                spacing: 6
                Accessible.name: rack.labels.claudeErrorLabel + rack.claudeError
                RackSymbol {
                    width: 13; height: 13
                    shape: "warning"
                    color: rack.palette.warning
                }
                Text {
                    text: rack.claudeError
                    font.pixelSize: 11
                    color: rack.palette.warning
                }
            }
            Row {
                spacing: 8
                RackButton {
                    text: rack.labels.claudeEnable
                    primary: true
                    enabled: !rack.claudeBusy
                    onClicked: rack.enableClaude()
                }
                RackButton {
                    text: rack.labels.notNow
                    enabled: !rack.claudeBusy
                    onClicked: rack.deferClaude()
                }
                Text {
                    visible: rack.claudeBusy
                    anchors.verticalCenter: parent.verticalCenter
                    text: rack.labels.claudeBusyLabel
                    font.pixelSize: 11
                    color: rack.palette.secondaryText
                }
            }
        }
    }

    // --- Footer -------------------------------------------------------------------------------
    Item {
        id: footer
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: 12
        anchors.topMargin: 0
        height: 28

        // A problem to report takes the place of the help.
        Rectangle {
            id: notice
            readonly property string message: rack.openError !== "" ? rack.openError : rack.bannerText
            visible: message !== ""
            anchors.left: parent.left
            anchors.right: footerActions.left
            anchors.rightMargin: 12
            anchors.verticalCenter: parent.verticalCenter
            height: 26
            radius: 6
            color: rack.palette.warningFill
            RackSymbol {
                id: noticeMark
                x: 8
                width: 13; height: 13
                anchors.verticalCenter: parent.verticalCenter
                shape: "warning"
                color: rack.palette.warning
            }
            Text {
                anchors.left: noticeMark.right
                anchors.leftMargin: 6
                anchors.right: parent.right
                anchors.rightMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                text: notice.message
                elide: Text.ElideRight
                font.pixelSize: 12
                color: rack.palette.warning
            }
        }

        Text {
            anchors.left: parent.left
            anchors.right: footerActions.left
            anchors.rightMargin: 12
            anchors.verticalCenter: parent.verticalCenter
            text: rack.helpText
            visible: !notice.visible && width > 120
            wrapMode: Text.Wrap
            maximumLineCount: 2
            elide: Text.ElideRight
            font.pixelSize: 10
            lineHeight: 0.95
            color: rack.palette.secondaryText
        }

        Row {
            id: footerActions
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            spacing: 8
            Accessible.name: rack.labels.completionActions
            RackButton {
                id: completionButton
                width: Math.min(implicitWidth, footer.width * 0.3)
                text: rack.labels.completionActions
                onClicked: completionMenu.visible = !completionMenu.visible
            }
            RackButton {
                width: Math.min(implicitWidth, footer.width * 0.3)
                text: rack.pageLockText
                primary: rack.pageLocked
                onClicked: rack.togglePageLock()
            }
        }
    }

    // The completion actions, opened from the footer.
    Rectangle {
        id: completionMenu
        objectName: "completionMenu"
        visible: false
        z: 10
        width: menuColumn.width + 16
        height: menuColumn.height + 16
        x: Math.min(root.width - width - 12, footer.x + footerActions.x + completionButton.x)
        y: footer.y - height - 4
        radius: 8
        color: rack.palette.card
        border.width: 1
        border.color: rack.palette.border
        Column {
            id: menuColumn
            x: 8
            y: 8
            spacing: 6
            RackButton {
                text: rack.markPageText
                enabled: rack.canMarkPage
                onClicked: { rack.markPageRead(); completionMenu.visible = false }
            }
            RackButton {
                text: rack.markAllText
                enabled: rack.canMarkAll
                onClicked: { rack.markAllRead(); completionMenu.visible = false }
            }
        }
    }
}
