import QtQuick
import Taskrack.Panel 1.0

// The project picker: a search field, a caption, the rows (projects, the scratch folder,
// "Choose Folder…") and the line shown when nothing matches.
Rectangle {
    id: picker
    property alias searchField: searchInput
    radius: 10
    color: quickTask.palette.card
    border.width: 1
    border.color: quickTask.palette.border

    Rectangle {
        id: searchBox
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 10
        height: 30
        radius: 7
        color: quickTask.palette.emptyCard
        border.width: searchInput.activeFocus ? 2 : 1
        border.color: searchInput.activeFocus ? quickTask.palette.accent : quickTask.palette.border
        RackSymbol {
            id: searchMark
            x: 9
            width: 13; height: 13
            anchors.verticalCenter: parent.verticalCenter
            shape: "search"
            color: quickTask.palette.secondaryText
        }
        TextInput {
            id: searchInput
            objectName: "pickerSearch"
            anchors.left: searchMark.right
            anchors.leftMargin: 7
            anchors.right: parent.right
            anchors.rightMargin: 9
            anchors.verticalCenter: parent.verticalCenter
            clip: true
            text: quickTask.pickerQuery
            font.pixelSize: 13
            color: quickTask.palette.text
            selectionColor: quickTask.palette.accent
            selectedTextColor: quickTask.palette.card
            onTextEdited: quickTask.setPickerQuery(text)
            Accessible.name: quickTask.labels.searchLabel
        }
        Text {
            anchors.fill: searchInput
            verticalAlignment: Text.AlignVCenter
            visible: searchInput.text === ""
            text: quickTask.labels.searchPlaceholder
            font.pixelSize: 13
            color: quickTask.palette.secondaryText
        }
    }

    Text {
        id: caption
        anchors.left: parent.left
        anchors.top: searchBox.bottom
        anchors.leftMargin: 12
        anchors.topMargin: 8
        text: quickTask.pickerCaption
        font.pixelSize: 10
        font.weight: Font.DemiBold
        font.letterSpacing: 0.6
        color: quickTask.palette.secondaryText
    }

    Row {
        id: noMatch
        visible: quickTask.pickerNoMatch
        anchors.left: caption.right
        anchors.leftMargin: 12
        anchors.right: parent.right
        anchors.verticalCenter: caption.verticalCenter
        spacing: 6
        Text {
            text: quickTask.labels.noMatch
            font.pixelSize: 11
            font.weight: Font.DemiBold
            color: quickTask.palette.text
        }
        Text {
            text: quickTask.labels.noMatchDetail
            font.pixelSize: 11
            color: quickTask.palette.secondaryText
        }
    }

    ListView {
        id: rows
        objectName: "pickerRows"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: caption.bottom
        anchors.bottom: parent.bottom
        anchors.margins: 8
        anchors.topMargin: 6
        clip: true
        spacing: 2
        boundsBehavior: Flickable.StopAtBounds
        model: quickTask.pickerRows
        currentIndex: quickTask.pickerHighlight
        highlightFollowsCurrentItem: false
        onCurrentIndexChanged: positionViewAtIndex(currentIndex, ListView.Contain)
        delegate: Rectangle {
            id: row
            required property int index
            required property string kind
            required property string name
            required property string detail
            required property string tag
            required property bool highlighted
            required property bool current
            required property bool pinned
            required property string pinAction
            required property string accessibleName
            width: rows.width
            height: 40
            radius: 7
            color: highlighted ? quickTask.palette.selectionFill : "transparent"
            border.width: highlighted ? 1 : 0
            border.color: quickTask.palette.accent
            Accessible.role: Accessible.ListItem
            Accessible.name: accessibleName

            RackSymbol {
                id: rowMark
                x: 10
                width: 14; height: 14
                anchors.verticalCenter: parent.verticalCenter
                shape: row.kind === "chooseFolder" ? "folder" : (row.current ? "dot" : "ring")
                color: row.current ? quickTask.palette.accent : quickTask.palette.secondaryText
            }
            Column {
                anchors.left: rowMark.right
                anchors.leftMargin: 10
                anchors.right: badges.left
                anchors.rightMargin: 10
                anchors.verticalCenter: parent.verticalCenter
                spacing: 1
                Text {
                    width: parent.width
                    text: row.name
                    elide: Text.ElideRight
                    font.pixelSize: 13
                    font.weight: row.current ? Font.DemiBold : Font.Normal
                    color: quickTask.palette.text
                }
                Text {
                    width: parent.width
                    text: row.detail
                    elide: Text.ElideMiddle
                    font.pixelSize: 10
                    color: quickTask.palette.secondaryText
                }
            }
            Row {
                id: badges
                z: 3
                anchors.right: parent.right
                anchors.rightMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                spacing: 6
                Rectangle {
                    visible: row.tag !== ""
                    width: tagText.implicitWidth + 12
                    height: 18
                    radius: 4
                    color: quickTask.palette.emptyCard
                    border.width: 1
                    border.color: quickTask.palette.border
                    Text {
                        id: tagText
                        anchors.centerIn: parent
                        text: row.tag
                        font.pixelSize: 9
                        font.weight: Font.DemiBold
                        color: quickTask.palette.secondaryText
                    }
                }
                RackSymbol {
                    visible: row.pinned
                    width: 12; height: 12
                    anchors.verticalCenter: parent.verticalCenter
                    shape: "pin"
                    color: quickTask.palette.accent
                }
                Rectangle {
                    visible: row.pinAction !== ""
                    width: pinText.implicitWidth + 14
                    height: 20
                    radius: 5
                    color: quickTask.palette.card
                    border.width: 1
                    border.color: quickTask.palette.accent
                    Text {
                        id: pinText
                        anchors.centerIn: parent
                        text: row.pinAction + "  " + quickTask.labels.pinKey
                        font.pixelSize: 9
                        font.weight: Font.DemiBold
                        color: quickTask.palette.accent
                    }
                    MouseArea {
                        anchors.fill: parent
                        onClicked: quickTask.confirmRow(row.index, true)
                    }
                }
            }
            MouseArea {
                anchors.fill: parent
                hoverEnabled: true
                onEntered: quickTask.highlightRow(row.index)
                onClicked: quickTask.confirmRow(row.index, false)
            }
        }
    }
}
