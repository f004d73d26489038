#include "app/rackcodexmodelsettings.h"

#include "quicktask/quicktaskcodexcatalog.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace taskrack {

namespace {

const QuickTaskCodexModel *findModel(const QuickTaskCodexCatalog &catalog, const QString &name)
{
    for (const QuickTaskCodexModel &model : catalog.models()) {
        if (model.model == name)
            return &model;
    }
    return nullptr;
}

QString effortTitle(const QString &effort)
{
    return effort.isEmpty() ? effort : effort.left(1).toUpper() + effort.mid(1);
}

} // namespace

RackCodexModelSettings::RackCodexModelSettings(Preferences &preferences,
                                               QuickTaskCodexCatalog &catalog, QWidget *parent)
    : QGroupBox(QStringLiteral("Codex model for Quick Tasks"), parent), m_preferences(preferences),
      m_catalog(catalog)
{
    auto *form = new QFormLayout(this);
    m_models = new QComboBox;
    m_efforts = new QComboBox;
    m_refresh = new QPushButton(QStringLiteral("Refresh Models"));
    m_refresh->setAutoDefault(false);
    auto *modelRow = new QHBoxLayout;
    modelRow->addWidget(m_models, 1);
    modelRow->addWidget(m_refresh);
    form->addRow(QStringLiteral("Model"), modelRow);
    form->addRow(QStringLiteral("Reasoning"), m_efforts);
    m_status = new QLabel;
    m_status->setWordWrap(true);
    form->addRow(m_status);

    connect(m_refresh, &QPushButton::clicked, this, &RackCodexModelSettings::refreshModels);
    connect(&m_catalog, &QuickTaskCodexCatalog::changed, this, &RackCodexModelSettings::reload);
    connect(m_models, &QComboBox::currentIndexChanged, this, [this] {
        // Keep the reasoning level where the new model has it, else take the model's own.
        const QString model = m_models->currentData().toString();
        QString effort = m_efforts->currentData().toString();
        const QuickTaskCodexModel *entry = findModel(m_catalog, model);
        if (entry && !entry->supportedReasoningEfforts.contains(effort))
            effort = entry->defaultReasoningEffort.value_or(QString());
        fillEfforts(model, effort);
        store();
    });
    connect(m_efforts, &QComboBox::currentIndexChanged, this, &RackCodexModelSettings::store);
    reload();
}

void RackCodexModelSettings::reload()
{
    const QSignalBlocker blockModels(m_models);
    const std::optional<QuickTaskCodexConfiguration> current = codexConfiguration(m_preferences);
    m_models->clear();
    for (const QuickTaskCodexModelOption &option : m_catalog.modelOptions())
        m_models->addItem(option.title, option.id);
    const QString model = current ? current->model : QString();
    if (m_models->findData(model) < 0)
        m_models->addItem(model, model); // saved, but not in the list (yet)
    m_models->setCurrentIndex(m_models->findData(model));
    fillEfforts(model, current ? current->reasoningEffort.value_or(QString()) : QString());
    m_refresh->setEnabled(!m_catalog.isLoading());
    m_status->setText(statusText());
    m_status->setVisible(!m_status->text().isEmpty());
}

void RackCodexModelSettings::loadIfNeeded()
{
    if (m_catalog.models().isEmpty() && !m_catalog.isLoading() && !m_catalog.errorMessage())
        refreshModels();
}

QString RackCodexModelSettings::statusText() const
{
    using Kind = QuickTaskCodexCatalogError::Kind;
    if (m_catalog.isLoading())
        return QStringLiteral("Loading models…");
    if (m_catalog.errorMessage())
        return *m_catalog.errorMessage();
    const QString model = m_models->currentData().toString();
    const QString effort = m_efforts->currentData().toString();
    if (model.isEmpty() || m_catalog.models().isEmpty())
        return QString();
    const QuickTaskCodexModel *entry = findModel(m_catalog, model);
    if (!entry)
        return QuickTaskCodexCatalogError(Kind::modelUnavailable, model).description();
    if (!effort.isEmpty() && !entry->supportedReasoningEfforts.contains(effort))
        return QuickTaskCodexCatalogError(Kind::unsupportedEffort, model, effort).description();
    return QString();
}

void RackCodexModelSettings::refreshModels()
{
    // The catalog joins a refresh that is running already; its changes redraw this group.
    [](QuickTaskCodexCatalog *catalog) -> QCoro::Task<void> {
        auto refreshing = catalog->refresh();
        co_await refreshing;
    }(&m_catalog);
}

void RackCodexModelSettings::fillEfforts(const QString &model, const QString &effort)
{
    const QSignalBlocker block(m_efforts);
    m_efforts->clear();
    m_efforts->addItem(QStringLiteral("Model default"), QString());
    if (const QuickTaskCodexModel *entry = findModel(m_catalog, model)) {
        for (const QString &level : entry->supportedReasoningEfforts)
            m_efforts->addItem(effortTitle(level), level);
    }
    if (m_efforts->findData(effort) < 0)
        m_efforts->addItem(effortTitle(effort), effort);
    m_efforts->setCurrentIndex(m_efforts->findData(effort));
    // Codex's default model comes with its default reasoning.
    m_efforts->setEnabled(!model.isEmpty());
}

void RackCodexModelSettings::store()
{
    const QString model = m_models->currentData().toString();
    const QString effort = m_efforts->currentData().toString();
    if (model.isEmpty())
        storeCodexConfiguration(m_preferences, std::nullopt);
    else
        storeCodexConfiguration(
            m_preferences, QuickTaskCodexConfiguration{
                               model, effort.isEmpty() ? std::nullopt : std::optional(effort)});
    m_status->setText(statusText());
    m_status->setVisible(!m_status->text().isEmpty());
    emit changed();
}

} // namespace taskrack
