import QtQuick
import QtQuick.Dialogs

// The folder chooser, loaded the first time it is needed so that the panel itself starts
// without the dialogs' modules.
FolderDialog {
    title: quickTask.labels.folderDialogTitle
    acceptLabel: quickTask.labels.folderDialogAccept
    currentFolder: quickTask.folderDialogStart
    onAccepted: quickTask.finishFolderDialog(selectedFolder)
    onRejected: quickTask.finishFolderDialog("")
}
