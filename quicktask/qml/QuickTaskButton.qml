import QtQuick
import Taskrack.Panel 1.0

// A push button of the Quick Task panel: a title, an optional key label and symbol; clicked by
// pointer, or by Return/Space once Tab gave it focus.
Rectangle {
    id: button
    property string text
    property string keyLabel
    property string symbol
    property bool primary: false
    property bool enabled: true
    property bool busy: false
    // Finished: shown at full strength although it no longer acts.
    property bool done: false
    signal clicked

    readonly property color foreground: primary ? quickTask.palette.card : quickTask.palette.text
    readonly property real extras: (mark.visible ? mark.width + row.spacing : 0)
                                   + (keyText.visible ? keyText.implicitWidth + row.spacing : 0)
    implicitWidth: label.implicitWidth + extras + 24
    implicitHeight: 30
    radius: 7
    opacity: enabled || busy || done ? 1 : 0.5
    activeFocusOnTab: enabled
    color: primary ? quickTask.palette.accent : quickTask.palette.card
    border.width: activeFocus ? 2 : 1
    border.color: activeFocus ? quickTask.palette.accent : quickTask.palette.border
    Accessible.role: Accessible.Button
    Accessible.name: text

    Row {
        id: row
        anchors.centerIn: parent
        spacing: 6
        RackSymbol {
            id: mark
            visible: button.symbol !== "" || button.busy
            width: 13; height: 13
            anchors.verticalCenter: parent.verticalCenter
            shape: button.busy ? "ring" : button.symbol
            color: button.foreground
            RotationAnimation on rotation {
                running: button.busy
                from: 0; to: 360; duration: 900; loops: Animation.Infinite
            }
        }
        Text {
            id: label
            anchors.verticalCenter: parent.verticalCenter
            width: Math.max(0, Math.min(implicitWidth, button.width - 24 - button.extras))
            elide: Text.ElideRight
            text: button.text
            font.pixelSize: 12
            font.weight: Font.DemiBold
            color: button.foreground
        }
        Text {
            id: keyText
            visible: button.keyLabel !== ""
            anchors.verticalCenter: parent.verticalCenter
            text: button.keyLabel
            font.pixelSize: 10
            color: button.foreground
            opacity: 0.75
        }
    }
    MouseArea {
        anchors.fill: parent
        enabled: button.enabled
        onClicked: button.clicked()
    }
    Keys.onReturnPressed: if (enabled) clicked()
    Keys.onSpacePressed: if (enabled) clicked()
}
