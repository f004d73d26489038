import QtQuick
import Taskrack.Panel 1.0

// The Codex model and reasoning effort of new Codex tasks, as the installed Codex offers them.
Rectangle {
    id: menu
    objectName: "codexMenu"
    width: 280
    height: Math.min(content.implicitHeight + 20, maximumHeight)
    property real maximumHeight: 300
    radius: 9
    color: quickTask.palette.card
    border.width: 1
    border.color: quickTask.palette.border

    Flickable {
        anchors.fill: parent
        anchors.margins: 10
        contentHeight: content.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        Column {
            id: content
            width: parent.width
            spacing: 3
            Repeater {
                model: quickTask.codexModels
                delegate: Rectangle {
                    required property var modelData
                    width: content.width
                    height: 26
                    radius: 5
                    color: modelData.selected ? quickTask.palette.selectionFill : "transparent"
                    Accessible.role: Accessible.RadioButton
                    Accessible.name: modelData.title
                    RackSymbol {
                        id: mark
                        x: 6
                        width: 11; height: 11
                        anchors.verticalCenter: parent.verticalCenter
                        shape: modelData.selected ? "dot" : "ring"
                        color: modelData.selected ? quickTask.palette.accent : quickTask.palette.secondaryText
                    }
                    Text {
                        anchors.left: mark.right
                        anchors.leftMargin: 8
                        anchors.right: parent.right
                        anchors.rightMargin: 6
                        anchors.verticalCenter: parent.verticalCenter
                        text: modelData.title
                        elide: Text.ElideRight
                        font.pixelSize: 12
                        color: quickTask.palette.text
                    }
                    MouseArea {
                        anchors.fill: parent
                        onClicked: quickTask.chooseCodexModel(modelData.id)
                    }
                }
            }
            Text {
                visible: quickTask.codexCatalogState !== "" && quickTask.codexCatalogState !== "ready"
                width: content.width
                text: quickTask.codexCatalogState
                wrapMode: Text.Wrap
                font.pixelSize: 11
                color: quickTask.palette.secondaryText
            }
            Text {
                visible: quickTask.codexEfforts.length > 0
                topPadding: 6
                text: quickTask.labels.effortCaption
                font.pixelSize: 10
                font.weight: Font.DemiBold
                font.letterSpacing: 0.6
                color: quickTask.palette.secondaryText
            }
            Flow {
                width: content.width
                spacing: 5
                Repeater {
                    model: quickTask.codexEfforts
                    delegate: Rectangle {
                        required property var modelData
                        width: effortText.implicitWidth + 16
                        height: 22
                        radius: 5
                        color: modelData.selected ? quickTask.palette.accent : quickTask.palette.emptyCard
                        border.width: 1
                        border.color: modelData.selected ? quickTask.palette.accent : quickTask.palette.border
                        Accessible.role: Accessible.RadioButton
                        Accessible.name: modelData.id
                        Text {
                            id: effortText
                            anchors.centerIn: parent
                            text: modelData.id
                            font.pixelSize: 11
                            color: modelData.selected ? quickTask.palette.card : quickTask.palette.text
                        }
                        MouseArea {
                            anchors.fill: parent
                            onClicked: quickTask.chooseCodexEffort(modelData.id)
                        }
                    }
                }
            }
            Item { width: 1; height: 4 }
            QuickTaskButton {
                text: quickTask.labels.refreshModels
                onClicked: quickTask.refreshCodexModels()
            }
        }
    }
}
