import QtQuick
import Taskrack.Panel 1.0

// The Quick Task panel: header with the project chip, the composer with its voice key and
// lines, the support line, and the provider bar. Every text and condition comes from
// `quickTask`, the view model; this file only arranges them.
Rectangle {
    id: root
    width: 720
    height: 440
    color: quickTask.palette.background
    border.width: 1
    border.color: quickTask.palette.border
    gradient: Gradient {
        GradientStop { position: 0.0; color: quickTask.palette.background }
        GradientStop { position: 1.0; color: quickTask.palette.backgroundEnd }
    }

    // A new presentation or the picker closing hands the keyboard back to the composer; the
    // picker opening gives it to its search field.
    readonly property int revision: quickTask.presentationRevision
    readonly property bool picking: quickTask.pickerPresented
    onRevisionChanged: composer.forceActiveFocus()
    onPickingChanged: picking ? picker.searchField.forceActiveFocus() : composer.forceActiveFocus()
    Component.onCompleted: composer.forceActiveFocus()

    Connections {
        target: quickTask
        function onFolderDialogRequested() {
            folderDialog.active = true
            folderDialog.item.open()
        }
        function onFolderDialogCloseRequested() {
            if (folderDialog.item)
                folderDialog.item.close()
        }
    }
    Loader {
        id: folderDialog
        active: false
        source: "QuickTaskFolderDialog.qml"
    }

    // --- Header ---------------------------------------------------------------------------
    Item {
        id: header
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 14
        height: 30

        Row {
            id: brand
            anchors.left: parent.left
            anchors.verticalCenter: parent.verticalCenter
            spacing: 8
            Accessible.name: quickTask.labels.newTaskSpoken
            Text {
                text: quickTask.labels.brand
                font.pixelSize: 11
                font.weight: Font.Bold
                font.letterSpacing: 1.2
                color: quickTask.palette.secondaryText
            }
            Text {
                text: quickTask.labels.newTask
                font.pixelSize: 11
                font.weight: Font.Bold
                font.letterSpacing: 1.2
                color: quickTask.palette.accent
            }
        }
        Rectangle {
            id: statusPill
            anchors.left: brand.right
            anchors.leftMargin: 12
            anchors.verticalCenter: parent.verticalCenter
            width: statusText.implicitWidth + 16
            height: 20
            radius: 10
            color: quickTask.palette.emptyCard
            border.width: 1
            border.color: quickTask.palette.border
            Text {
                id: statusText
                anchors.centerIn: parent
                text: quickTask.statusLabel
                font.pixelSize: 9
                font.weight: Font.DemiBold
                font.letterSpacing: 0.8
                color: quickTask.palette.secondaryText
            }
        }
        Rectangle {
            id: chip
            objectName: "projectChip"
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            readonly property real extras: chipKey.implicitWidth + 6
                                           + (quickTask.chipNeedsAttention ? 19 : 0)
            width: Math.min(chipLabel.implicitWidth + extras + 20,
                            header.width - statusPill.x - statusPill.width - 16)
            height: 28
            radius: 8
            color: quickTask.pickerPresented ? quickTask.palette.selectionFill
                 : quickTask.chipNeedsAttention ? quickTask.palette.warningFill : quickTask.palette.card
            border.width: 1
            border.color: quickTask.pickerPresented ? quickTask.palette.accent : quickTask.palette.border
            Accessible.role: Accessible.Button
            Accessible.name: quickTask.chipText
            Accessible.description: quickTask.labels.chipHint
            Row {
                id: chipRow
                anchors.verticalCenter: parent.verticalCenter
                x: 10
                width: chip.width - 20
                spacing: 6
                RackSymbol {
                    visible: quickTask.chipNeedsAttention
                    width: 13; height: 13
                    anchors.verticalCenter: parent.verticalCenter
                    shape: "exclamationmark.triangle.fill"
                    color: quickTask.palette.warning
                }
                Text {
                    id: chipLabel
                    width: Math.max(0, Math.min(implicitWidth, chipRow.width - chip.extras))
                    anchors.verticalCenter: parent.verticalCenter
                    text: quickTask.chipText
                    elide: Text.ElideMiddle
                    font.pixelSize: 12
                    font.weight: Font.DemiBold
                    color: quickTask.chipNeedsAttention ? quickTask.palette.warning : quickTask.palette.text
                }
                Text {
                    id: chipKey
                    anchors.verticalCenter: parent.verticalCenter
                    text: quickTask.labels.pickerKey
                    font.pixelSize: 10
                    color: quickTask.palette.secondaryText
                }
            }
            MouseArea {
                anchors.fill: parent
                onClicked: quickTask.togglePicker()
            }
        }
    }

    // --- Composer -------------------------------------------------------------------------
    Column {
        id: titleBlock
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: header.bottom
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        anchors.topMargin: 8
        spacing: 2
        Text {
            text: quickTask.labels.title
            font.pixelSize: 17
            font.weight: Font.DemiBold
            color: quickTask.palette.text
        }
        Text {
            width: parent.width
            text: quickTask.labels.subtitle
            elide: Text.ElideRight
            font.pixelSize: 12
            color: quickTask.palette.secondaryText
        }
    }

    Rectangle {
        id: composerBox
        anchors.left: parent.left
        anchors.right: voiceKey.left
        anchors.top: titleBlock.bottom
        anchors.bottom: lines.top
        anchors.leftMargin: 14
        anchors.rightMargin: 10
        anchors.topMargin: 10
        anchors.bottomMargin: 6
        radius: 10
        color: quickTask.palette.card
        border.width: composer.activeFocus ? 2 : 1
        border.color: composer.activeFocus ? quickTask.palette.accent : quickTask.palette.border

        Flickable {
            id: scroller
            anchors.fill: parent
            anchors.margins: 12
            contentWidth: width
            contentHeight: composer.contentHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            function follow(r) {
                if (contentY >= r.y)
                    contentY = r.y
                else if (contentY + height <= r.y + r.height)
                    contentY = r.y + r.height - height
            }
            TextEdit {
                id: composer
                objectName: "composer"
                width: scroller.width
                height: Math.max(scroller.height, contentHeight)
                text: quickTask.draft
                wrapMode: TextEdit.Wrap
                font.pixelSize: 15
                color: quickTask.palette.text
                selectionColor: quickTask.palette.accent
                selectedTextColor: quickTask.palette.card
                readOnly: quickTask.busy
                persistentSelection: false
                onTextChanged: if (text !== quickTask.draft) quickTask.editDraft(text)
                onCursorRectangleChanged: scroller.follow(cursorRectangle)
                Accessible.name: quickTask.labels.prompt
            }
            Text {
                visible: composer.text === ""
                text: quickTask.labels.prompt
                font.pixelSize: 15
                color: quickTask.palette.secondaryText
            }
        }
        MouseArea {
            anchors.fill: parent
            acceptedButtons: Qt.NoButton
            cursorShape: Qt.IBeamCursor
        }
    }

    // The voice key; inert in a build without dictation.
    Rectangle {
        id: voiceKey
        objectName: "voiceKey"
        anchors.right: parent.right
        anchors.top: composerBox.top
        anchors.rightMargin: 14
        width: 104
        height: 104
        radius: 12
        opacity: quickTask.voiceKeyActive ? 1 : 0.45
        color: quickTask.voiceIdentifier === "listening" ? quickTask.palette.selectionFill : quickTask.palette.card
        border.width: 1
        border.color: quickTask.voiceIdentifier === "listening" ? quickTask.palette.accent : quickTask.palette.border
        Accessible.role: Accessible.Button
        Accessible.name: quickTask.voiceKeyLabel
        Accessible.description: quickTask.voiceHelp
        Column {
            anchors.centerIn: parent
            width: parent.width - 12
            spacing: 5
            RackSymbol {
                anchors.horizontalCenter: parent.horizontalCenter
                width: 26; height: 26
                shape: quickTask.voiceSymbol
                color: quickTask.voiceIdentifier === "failed" || quickTask.voiceIdentifier === "permission"
                       ? quickTask.palette.warning : quickTask.palette.accent
            }
            Text {
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: quickTask.voiceKeyLabel
                elide: Text.ElideRight
                font.pixelSize: 11
                font.weight: Font.Bold
                color: quickTask.palette.text
            }
            Text {
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: quickTask.voiceHint
                elide: Text.ElideRight
                font.pixelSize: 8
                font.letterSpacing: 0.4
                color: quickTask.palette.secondaryText
            }
            Rectangle {
                anchors.horizontalCenter: parent.horizontalCenter
                width: captionText.implicitWidth + 10
                height: 15
                radius: 4
                color: quickTask.palette.emptyCard
                border.width: 1
                border.color: quickTask.palette.border
                Text {
                    id: captionText
                    anchors.centerIn: parent
                    text: quickTask.voiceCaption
                    font.pixelSize: 8
                    font.weight: Font.DemiBold
                    color: quickTask.palette.secondaryText
                }
            }
        }
        MouseArea {
            anchors.fill: parent
            enabled: quickTask.voiceKeyActive
            onClicked: quickTask.pressVoiceKey()
        }
    }

    // The composer's own lines: what the voice is doing, or how much was typed.
    Row {
        id: lines
        anchors.left: composerBox.left
        anchors.right: composerBox.right
        anchors.bottom: support.top
        anchors.bottomMargin: 6
        height: 14
        spacing: 10
        Repeater {
            model: quickTask.composerLines
            delegate: Text {
                required property string modelData
                text: modelData
                font.pixelSize: 9
                font.weight: Font.DemiBold
                font.letterSpacing: 0.6
                color: quickTask.palette.secondaryText
            }
        }
    }

    // The support line: a message, a notice, or what the voice needs.
    Rectangle {
        id: support
        objectName: "support"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: providerBar.top
        anchors.leftMargin: 14
        anchors.rightMargin: 14
        anchors.bottomMargin: 10
        height: 44
        radius: 8
        color: quickTask.supportWarning ? quickTask.palette.warningFill : quickTask.palette.emptyCard
        border.width: 1
        border.color: quickTask.palette.border
        Accessible.role: Accessible.StaticText
        Accessible.name: quickTask.supportTitle + " " + quickTask.supportDetail
        RackSymbol {
            id: supportMark
            visible: quickTask.supportWarning
            x: 10
            width: 14; height: 14
            anchors.verticalCenter: parent.verticalCenter
            shape: "exclamationmark.triangle.fill"
            color: quickTask.palette.warning
        }
        Column {
            anchors.left: supportMark.visible ? supportMark.right : parent.left
            anchors.leftMargin: 10
            anchors.right: supportButtons.left
            anchors.rightMargin: 10
            anchors.verticalCenter: parent.verticalCenter
            spacing: 1
            Text {
                objectName: "supportTitle"
                width: parent.width
                text: quickTask.supportTitle
                elide: Text.ElideRight
                maximumLineCount: quickTask.supportDetail === "" ? 2 : 1
                wrapMode: Text.Wrap
                font.pixelSize: 12
                font.weight: quickTask.supportDetail === "" ? Font.Normal : Font.DemiBold
                color: quickTask.supportWarning ? quickTask.palette.warning : quickTask.palette.text
            }
            Text {
                visible: text !== ""
                width: parent.width
                text: quickTask.supportDetail
                elide: Text.ElideRight
                font.pixelSize: 11
                color: quickTask.palette.secondaryText
            }
        }
        Row {
            id: supportButtons
            anchors.right: parent.right
            anchors.rightMargin: 8
            anchors.verticalCenter: parent.verticalCenter
            spacing: 8
            Text {
                visible: quickTask.preparationSeconds >= 0
                anchors.verticalCenter: parent.verticalCenter
                text: quickTask.labels.typeAnytime + " · " + quickTask.preparationSeconds + "s"
                font.pixelSize: 9
                font.weight: Font.DemiBold
                color: quickTask.palette.secondaryText
            }
            QuickTaskButton {
                visible: quickTask.supportAction !== ""
                height: 26
                text: quickTask.supportAction
                onClicked: quickTask.runSupportAction()
            }
        }
    }

    // --- Provider bar ---------------------------------------------------------------------
    Item {
        id: providerBar
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: 14
        height: 32

        Text {
            id: createIn
            anchors.left: parent.left
            anchors.verticalCenter: parent.verticalCenter
            text: quickTask.labels.createIn
            font.pixelSize: 10
            font.weight: Font.Bold
            font.letterSpacing: 1
            color: quickTask.palette.secondaryText
        }
        Row {
            anchors.left: createIn.right
            anchors.leftMargin: 12
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            spacing: 8
            layoutDirection: Qt.LeftToRight
            Repeater {
                model: quickTask.providers
                delegate: Row {
                    required property var modelData
                    required property int index
                    spacing: 4
                    QuickTaskButton {
                        objectName: "provider-" + modelData.id
                        height: 32
                        primary: index === 0
                        text: modelData.title
                        keyLabel: modelData.keyLabel
                        symbol: modelData.created ? "checkmark.circle.fill" : ""
                        busy: modelData.busy
                        done: modelData.created
                        enabled: modelData.enabled
                        Accessible.name: modelData.accessibleName
                        onClicked: quickTask.submit(modelData.id)
                    }
                    // Beside Codex: its model and reasoning for new tasks.
                    QuickTaskButton {
                        id: codexChoice
                        visible: modelData.id === "codex"
                        objectName: "codexChoice"
                        height: 32
                        width: Math.min(implicitWidth, 230)
                        text: quickTask.codexChoiceText
                        symbol: "chevron.down"
                        onClicked: quickTask.setCodexMenuOpen(!quickTask.codexMenuOpen)
                    }
                }
            }
        }
    }

    // --- Overlays -------------------------------------------------------------------------
    QuickTaskPicker {
        id: picker
        visible: quickTask.pickerPresented
        z: 10
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: header.bottom
        anchors.bottom: providerBar.top
        anchors.leftMargin: 14
        anchors.rightMargin: 14
        anchors.topMargin: 8
        anchors.bottomMargin: 10
    }

    MouseArea {
        visible: quickTask.codexMenuOpen
        anchors.fill: parent
        z: 19
        onClicked: quickTask.setCodexMenuOpen(false)
    }
    QuickTaskCodexMenu {
        visible: quickTask.codexMenuOpen
        z: 20
        x: 14 + createIn.width + 12
        maximumHeight: providerBar.y - 24
        y: providerBar.y - height - 6
    }
}
