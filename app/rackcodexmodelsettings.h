#pragma once

// The Codex model and reasoning effort that new Quick Tasks ask for, chosen from what the
// installed Codex offers ("Refresh Models" asks it again). A saved model that Codex no longer
// offers stays selected and says so, so that nothing changes behind the person's back.

#include <QGroupBox>

class QComboBox;
class QLabel;
class QPushButton;

namespace taskrack {

class Preferences;
class QuickTaskCodexCatalog;

class RackCodexModelSettings : public QGroupBox
{
    Q_OBJECT
public:
    RackCodexModelSettings(Preferences &preferences, QuickTaskCodexCatalog &catalog,
                           QWidget *parent = nullptr);

    // Shows the saved choice over the catalog's current list.
    void reload();
    // Asks Codex for its list unless one is loaded or loading.
    void loadIfNeeded();

    QComboBox &models() { return *m_models; }
    QComboBox &efforts() { return *m_efforts; }
    QString statusText() const;

signals:
    // After every stored choice.
    void changed();

private:
    void refreshModels();
    void fillEfforts(const QString &model, const QString &effort);
    void store();

    Preferences &m_preferences;
    QuickTaskCodexCatalog &m_catalog;
    QComboBox *m_models = nullptr;
    QComboBox *m_efforts = nullptr;
    QPushButton *m_refresh = nullptr;
    QLabel *m_status = nullptr;
};

} // namespace taskrack
