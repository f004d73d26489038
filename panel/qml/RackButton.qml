import QtQuick

// A plain push button: clicked by pointer, or by Return/Space once Tab gave it focus.
Rectangle {
    id: button
    property string text
    property bool primary: false
    property bool enabled: true
    signal clicked

    implicitWidth: label.implicitWidth + 24
    implicitHeight: 26
    radius: 6
    opacity: enabled ? 1 : 0.55
    activeFocusOnTab: enabled
    color: primary ? rack.palette.accent : rack.palette.card
    border.width: activeFocus ? 2 : 1
    border.color: activeFocus ? rack.palette.accent : rack.palette.border
    Accessible.role: Accessible.Button
    Accessible.name: text

    Text {
        id: label
        anchors.centerIn: parent
        width: Math.min(implicitWidth, button.width - 16)
        elide: Text.ElideRight
        text: button.text
        font.pixelSize: 12
        font.weight: Font.DemiBold
        color: button.primary ? rack.palette.card : rack.palette.text
    }
    MouseArea {
        anchors.fill: parent
        enabled: button.enabled
        onClicked: button.clicked()
    }
    Keys.onReturnPressed: if (enabled) clicked()
    Keys.onSpacePressed: if (enabled) clicked()
}
