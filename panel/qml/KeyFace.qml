import QtQuick
import Taskrack.Panel 1.0

// One key of the strip: a task, an empty key, or the new-task key of a project.
Rectangle {
    id: face
    property string kind
    property string keyLabel
    property string title
    property string detail
    property string status
    property string statusLabel
    property bool selected
    property bool worktree
    property string lineage
    property string accessibleText
    property string dotShape
    property string dotTint
    property bool keyEnabled: true
    signal chosen
    signal opened

    readonly property bool isThread: kind === "thread"
    readonly property bool isEmpty: kind === "empty"

    radius: 10
    color: selected ? rack.palette.selectionFill : (isEmpty ? rack.palette.emptyCard : rack.palette.card)
    border.width: selected ? 2 : 1
    border.color: selected ? rack.palette.accent : rack.palette.border
    opacity: keyEnabled ? 1 : 0.6
    Accessible.role: Accessible.Button
    Accessible.name: accessibleText
    Behavior on color { ColorAnimation { duration: rack.selectionAnimation } }
    Behavior on border.color { ColorAnimation { duration: rack.selectionAnimation } }

    // A working task glows in its status colour around the key; the selection's own border
    // replaces it, so the two blues never meet. Still, not animated: an open rack stays idle.
    Rectangle {
        z: -1
        visible: face.isThread && face.status === "working" && !face.selected
        anchors.fill: parent
        anchors.margins: -3
        radius: face.radius + 3
        color: "transparent"
        border.width: 3
        border.color: Qt.rgba(rack.palette.statusColor("working").r,
                              rack.palette.statusColor("working").g,
                              rack.palette.statusColor("working").b, 0.35)
    }

    Rectangle {
        id: badge
        x: 8; y: 8
        width: 20; height: 20; radius: 5
        color: face.selected ? rack.palette.accent : "transparent"
        border.width: face.selected ? 0 : 1
        border.color: rack.palette.border
        Text {
            anchors.centerIn: parent
            text: face.keyLabel
            font.pixelSize: 11
            font.weight: Font.DemiBold
            color: face.selected ? rack.palette.card : rack.palette.secondaryText
        }
    }

    Row {
        visible: face.isThread
        anchors.right: parent.right
        anchors.rightMargin: 8
        anchors.verticalCenter: badge.verticalCenter
        spacing: 4
        RackSymbol {
            width: 9; height: 9
            anchors.verticalCenter: parent.verticalCenter
            shape: face.status === "recent" ? "ring" : "dot"
            color: rack.palette.statusColor(face.status)
        }
        Text {
            // The word stays beside the colour while it fits right of the key badge.
            visible: face.width >= badge.x + badge.width + 8 + 13 + implicitWidth + 8
            text: face.statusLabel
            font.pixelSize: 11
            color: rack.palette.secondaryText
        }
    }

    Text {
        id: titleText
        visible: !face.isEmpty
        anchors.top: badge.bottom
        anchors.topMargin: 8
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.leftMargin: 10
        anchors.rightMargin: 10
        text: face.title
        wrapMode: Text.WrapAtWordBoundaryOrAnywhere
        maximumLineCount: 3
        elide: Text.ElideRight
        font.pixelSize: face.width > 124 ? 13 : 12
        font.weight: Font.DemiBold
        color: rack.palette.text
    }

    RackSymbol {
        visible: face.kind === "newTask"
        anchors.centerIn: parent
        anchors.verticalCenterOffset: 6
        width: 22; height: 22
        shape: "plus"
        color: rack.palette.accent
    }

    Row {
        id: footerRow
        visible: !face.isEmpty
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: 10
        spacing: 5
        RackSymbol {
            visible: face.dotShape !== ""
            width: visible ? 11 : 0; height: 11
            anchors.verticalCenter: parent.verticalCenter
            shape: face.dotShape
            color: rack.palette.tintColor(face.dotTint)
        }
        Text {
            width: Math.max(0, footerRow.width - x - marks.width - 5)
            text: face.detail
            elide: Text.ElideRight
            font.pixelSize: 11
            color: rack.palette.secondaryText
        }
        Row {
            id: marks
            spacing: 4
            anchors.verticalCenter: parent.verticalCenter
            RackSymbol {
                visible: face.worktree
                width: visible ? 12 : 0; height: 12
                shape: "branch"
                color: rack.palette.secondaryText
            }
            RackSymbol {
                visible: face.lineage !== ""
                width: visible ? 12 : 0; height: 12
                shape: "lineage"
                color: rack.palette.secondaryText
            }
        }
    }

    MouseArea {
        anchors.fill: parent
        enabled: !face.isEmpty && face.keyEnabled
        onClicked: face.chosen()
        onDoubleClicked: face.opened()
    }
}
