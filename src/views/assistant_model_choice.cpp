#include "assistant_model_choice.h"

#include <algorithm>

#include <QHBoxLayout>

namespace quillo::views {

namespace {

std::optional<std::string> valueOf(const QComboBox& box) {
    const QString value = box.currentData().toString();
    return value.isEmpty() ? std::nullopt : std::optional<std::string>(value.toStdString());
}

// Selects the item holding `value` (none: the first, "Default").
void select(QComboBox& box, const std::optional<std::string>& value) {
    const int index = value ? box.findData(QString::fromStdString(*value)) : 0;
    box.setCurrentIndex(std::max(index, 0));
}

}  // namespace

AssistantModelChoice::AssistantModelChoice(QWidget* parent) : QWidget(parent) {
    m_engine = new QLabel(this);
    m_engine->setAccessibleName(tr("Engine"));
    m_engine->setToolTip(
        tr("The agent CLI of this conversation; new ones use the engine chosen "
           "in Settings › Assistant"));
    QFont bold = m_engine->font();
    bold.setBold(true);
    m_engine->setFont(bold);
    m_model = new QComboBox(this);
    m_model->setAccessibleName(tr("Model"));
    m_model->setToolTip(tr("Model"));
    // Long model names are cut rather than pushing the effort out of sight.
    m_model->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_model->setMinimumContentsLength(10);
    m_model->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    m_effort = new QComboBox(this);
    m_effort->setAccessibleName(tr("Effort"));
    m_effort->setToolTip(tr("Effort"));
    m_effort->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_engine);
    layout->addWidget(m_model, 1);
    layout->addWidget(m_effort);
    connect(m_model, &QComboBox::activated, this, [this] {
        // Keep the effort when the new model accepts it.
        fillEfforts(chosenEffort());
        emitChoice();
    });
    connect(m_effort, &QComboBox::activated, this, [this] { emitChoice(); });
}

void AssistantModelChoice::showChoice(const assistant::Conversation* conversation,
                                      const std::vector<assistant::ModelChoice>& models,
                                      bool locked) {
    setEnabled(conversation != nullptr && !locked);
    if (!conversation) {
        m_engine->clear();
        m_model->clear();
        m_effort->hide();
        return;
    }
    m_engine->setText(QString::fromStdString(assistant::engineName(conversation->engine)));
    m_filling = true;
    m_models = models;
    // A model the conversation names that the menu doesn't (yet) offer is still shown.
    if (conversation->model && std::none_of(models.begin(), models.end(), [&](const auto& model) {
            return model.value == *conversation->model;
        })) {
        m_models.push_back({*conversation->model, *conversation->model, {}});
    }
    m_model->clear();
    m_model->addItem(tr("Default model"), QString());
    for (const assistant::ModelChoice& model : m_models) {
        m_model->addItem(QString::fromStdString(model.displayName),
                         QString::fromStdString(model.value));
    }
    select(*m_model, conversation->model);
    fillEfforts(conversation->effort);
    m_filling = false;
}

void AssistantModelChoice::fillEfforts(const std::optional<std::string>& effort) {
    const std::optional<std::string> model = chosenModel();
    const assistant::ModelChoice* choice = nullptr;
    for (const assistant::ModelChoice& item : m_models) {
        if (item.value == model.value_or("default")) {
            choice = &item;
        }
    }
    const bool was = m_filling;
    m_filling = true;
    m_effort->clear();
    if (choice && !choice->effortLevels.empty()) {
        m_effort->addItem(tr("Default effort"), QString());
        for (const std::string& level : choice->effortLevels) {
            QString name = QString::fromStdString(level);
            if (!name.isEmpty()) {
                name[0] = name[0].toUpper();
            }
            m_effort->addItem(name, QString::fromStdString(level));
        }
        select(*m_effort, effort);
    }
    m_effort->setVisible(m_effort->count() > 0);
    m_filling = was;
}

std::optional<std::string> AssistantModelChoice::chosenModel() const { return valueOf(*m_model); }

std::optional<std::string> AssistantModelChoice::chosenEffort() const {
    return m_effort->count() > 0 ? valueOf(*m_effort) : std::nullopt;
}

void AssistantModelChoice::emitChoice() {
    if (!m_filling) {
        emit chosen(chosenModel(), chosenEffort());
    }
}

}  // namespace quillo::views
