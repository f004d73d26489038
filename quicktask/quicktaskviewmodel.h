#pragma once

// Everything the Quick Task panel's QML reads: the header, the project chip, the composer and its
// lines, the voice key, the support line under the composer, the provider buttons, the project
// picker and the Codex model choice, with the actions its controls may run. All texts and
// conditions are decided here over the store; the QML only lays them out.

#include "panel/racklistmodel.h"
#include "panel/rackpalette.h"
#include "quicktask/quicktaskcodexcatalog.h"
#include "quicktask/quicktaskstore.h"

#include <QObject>
#include <QUrl>
#include <QVariantList>

namespace taskrack {

class QuickTaskCodexCatalog;

// What the support line under the composer shows; the identifier keys its transitions.
struct QuickTaskSupport
{
    QString identifier;
    QString title;
    QString detail;
    QString action; // a button's text; empty: no button
    bool warning = false;
    // The preparation view: its lines, the caption and the seconds shown beside it.
    QStringList preparation;
    int elapsedSeconds = -1;

    bool operator==(const QuickTaskSupport &) const = default;
};

class QuickTaskViewModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(RackPalette *palette READ palette CONSTANT)
    Q_PROPERTY(QVariantMap labels READ labels CONSTANT)
    Q_PROPERTY(RackListModel *pickerRows READ pickerRows CONSTANT)
    Q_PROPERTY(QVariantList providers READ providers NOTIFY changed)
    Q_PROPERTY(QString draft READ draft NOTIFY changed)
    Q_PROPERTY(int presentationRevision READ presentationRevision NOTIFY changed)
    Q_PROPERTY(QString statusLabel READ statusLabel NOTIFY changed)
    Q_PROPERTY(QString chipText READ chipText NOTIFY changed)
    Q_PROPERTY(QString chipName READ chipName NOTIFY changed)
    Q_PROPERTY(bool chipPinned READ chipPinned NOTIFY changed)
    Q_PROPERTY(bool chipNeedsAttention READ chipNeedsAttention NOTIFY changed)
    Q_PROPERTY(QStringList composerLines READ composerLines NOTIFY changed)
    Q_PROPERTY(bool voiceAvailable READ voiceAvailable CONSTANT)
    Q_PROPERTY(bool voiceKeyActive READ voiceKeyActive NOTIFY changed)
    Q_PROPERTY(QString voiceKeyLabel READ voiceKeyLabel NOTIFY changed)
    Q_PROPERTY(QString voiceHint READ voiceHint NOTIFY changed)
    Q_PROPERTY(QString voiceSymbol READ voiceSymbol NOTIFY changed)
    Q_PROPERTY(QString voiceCaption READ voiceCaption NOTIFY changed)
    Q_PROPERTY(QString voiceHelp READ voiceHelp NOTIFY changed)
    Q_PROPERTY(QString voiceIdentifier READ voiceIdentifier NOTIFY changed)
    Q_PROPERTY(QString supportIdentifier READ supportIdentifier NOTIFY changed)
    Q_PROPERTY(QString supportTitle READ supportTitle NOTIFY changed)
    Q_PROPERTY(QString supportDetail READ supportDetail NOTIFY changed)
    Q_PROPERTY(QString supportAction READ supportAction NOTIFY changed)
    Q_PROPERTY(bool supportWarning READ supportWarning NOTIFY changed)
    Q_PROPERTY(QStringList preparationLines READ preparationLines NOTIFY changed)
    Q_PROPERTY(int preparationSeconds READ preparationSeconds NOTIFY changed)
    Q_PROPERTY(bool pickerPresented READ pickerPresented NOTIFY changed)
    Q_PROPERTY(QString pickerQuery READ pickerQuery NOTIFY changed)
    Q_PROPERTY(QString pickerCaption READ pickerCaption NOTIFY changed)
    Q_PROPERTY(bool pickerNoMatch READ pickerNoMatch NOTIFY changed)
    Q_PROPERTY(int pickerHighlight READ pickerHighlight NOTIFY changed)
    Q_PROPERTY(bool busy READ busy NOTIFY changed)
    Q_PROPERTY(QUrl folderDialogStart READ folderDialogStart NOTIFY changed)
    Q_PROPERTY(QString codexChoiceText READ codexChoiceText NOTIFY codexChanged)
    Q_PROPERTY(QVariantList codexModels READ codexModels NOTIFY codexChanged)
    Q_PROPERTY(QVariantList codexEfforts READ codexEfforts NOTIFY codexChanged)
    Q_PROPERTY(QString codexCatalogState READ codexCatalogState NOTIFY codexChanged)
    Q_PROPERTY(bool codexMenuOpen READ codexMenuOpen NOTIFY codexChanged)

public:
    QuickTaskViewModel(QuickTaskStore &store, RackPalette &palette, Preferences &preferences,
                       QuickTaskCodexCatalog *catalog = nullptr, QObject *parent = nullptr);

    // --- texts and conditions -------------------------------------------------------------
    RackPalette *palette() { return &m_palette; }
    QVariantMap labels() const;
    RackListModel *pickerRows() { return &m_pickerRows; }
    QVariantList providers() const;
    QString draft() const { return m_store.draft(); }
    int presentationRevision() const { return m_store.presentationRevision(); }
    QString statusLabel() const;
    QString chipText() const;
    QString chipName() const { return m_store.selectedProject().name; }
    bool chipPinned() const { return m_store.isSelectedPinned(); }
    bool chipNeedsAttention() const;
    QStringList composerLines() const;
    bool voiceAvailable() const { return m_store.isVoiceAvailable(); }
    bool voiceKeyActive() const;
    QString voiceKeyLabel() const { return m_store.voicePresentation().keyLabel(); }
    QString voiceHint() const { return m_store.voicePresentation().hintLabel(); }
    QString voiceSymbol() const { return m_store.voicePresentation().symbol(); }
    QString voiceCaption() const;
    QString voiceHelp() const;
    QString voiceIdentifier() const { return m_store.voicePresentation().identifier(); }
    QuickTaskSupport support() const;
    QString supportIdentifier() const { return support().identifier; }
    QString supportTitle() const { return support().title; }
    QString supportDetail() const { return support().detail; }
    QString supportAction() const { return support().action; }
    bool supportWarning() const { return support().warning; }
    QStringList preparationLines() const { return support().preparation; }
    int preparationSeconds() const { return support().elapsedSeconds; }
    bool pickerPresented() const { return m_store.isProjectPickerPresented(); }
    QString pickerQuery() const { return m_store.projectPickerQuery(); }
    QString pickerCaption() const;
    bool pickerNoMatch() const;
    int pickerHighlight() const { return m_store.projectPickerHighlight(); }
    bool busy() const;
    // Where the folder chooser opens: the selected project's folder, else the home folder.
    QUrl folderDialogStart() const;
    QString codexChoiceText() const;
    QVariantList codexModels() const;
    QVariantList codexEfforts() const;
    // "loading", "failed" (the catalog's message in codexCatalogError), or "ready".
    QString codexCatalogState() const;
    bool codexMenuOpen() const { return m_codexMenuOpen; }
    // The notice after a task opened without its prompt; empty otherwise.
    QString pasteNotice() const { return m_pasteNotice; }
    void setPasteNotice(const QString &text);

    // --- what the controls do -------------------------------------------------------------
    // The person edited the composer: typing takes over from voice, and the text is kept.
    Q_INVOKABLE void editDraft(const QString &text);
    Q_INVOKABLE void setPickerQuery(const QString &query);
    Q_INVOKABLE void submit(const QString &provider);
    Q_INVOKABLE void pressVoiceKey();
    Q_INVOKABLE void runSupportAction();
    Q_INVOKABLE void togglePicker();
    Q_INVOKABLE void highlightRow(int index);
    Q_INVOKABLE void confirmRow(int index, bool pin);
    Q_INVOKABLE void setCodexMenuOpen(bool open);
    Q_INVOKABLE void refreshCodexModels();
    Q_INVOKABLE void chooseCodexModel(const QString &model);
    Q_INVOKABLE void chooseCodexEffort(const QString &effort);
    // The folder dialog's answer: a file URL, or empty when it was cancelled.
    Q_INVOKABLE void finishFolderDialog(const QUrl &folder);

    // Closes an open folder dialog as if cancelled (the panel went away).
    void cancelFolderDialog();
    // Opens the folder dialog and waits for the person's answer; the store's folder chooser.
    QCoro::Task<std::optional<QString>> chooseFolder();
    // The system's microphone settings, where there are any.
    std::function<void()> openMicrophoneSettings;

signals:
    void changed();
    void codexChanged();
    // The QML opens its folder dialog.
    void folderDialogRequested();
    void folderDialogCloseRequested();
    void folderDialogFinished(std::optional<QString> folder);

private:
    void storeChanged();
    QList<QVariantMap> pickerRowMaps() const;
    std::optional<QuickTaskCodexConfiguration> codexChoice() const;

    QuickTaskStore &m_store;
    RackPalette &m_palette;
    Preferences &m_preferences;
    QuickTaskCodexCatalog *m_catalog;
    RackListModel m_pickerRows;
    QString m_pasteNotice;
    bool m_codexMenuOpen = false;
};

} // namespace taskrack
