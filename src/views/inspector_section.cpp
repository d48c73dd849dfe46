#include "inspector_section.h"

#include <QFrame>
#include <QSettings>
#include <QStandardPaths>
#include <QToolButton>
#include <QVBoxLayout>

namespace quillo::views {

namespace {

// The editor's view state lives beside the preferences ($XDG_CONFIG_HOME/Quillo/editor.conf),
// not in them: it is no setting the user chooses.
// The path is looked up each time (QSettings' own user path is fixed at first use).
QSettings viewState() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return QSettings(folder + "/Quillo/editor.conf", QSettings::IniFormat);
}

QString stateKey(const QString& key) { return "inspector/" + key + "Open"; }

}  // namespace

InspectorSection::InspectorSection(const QString& key, const QString& title, bool openByDefault,
                                   QWidget* parent)
    : QWidget(parent), m_key(key) {
    m_header = new QToolButton(this);
    m_header->setText(title);
    m_header->setAccessibleName(title);
    m_header->setAccessibleDescription(tr("Shows or hides the %1 settings").arg(title));
    m_header->setCheckable(true);
    m_header->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_header->setAutoRaise(true);
    m_header->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    QFont bold = m_header->font();
    bold.setBold(true);
    m_header->setFont(bold);
    m_header->setStyleSheet("QToolButton { border: none; padding: 4px 0px; text-align: left; }");

    auto* rule = new QFrame(this);
    rule->setFrameShape(QFrame::HLine);
    // A hairline in the palette's mid tone: a sunken line glares in dark themes.
    rule->setFrameShadow(QFrame::Plain);
    rule->setForegroundRole(QPalette::Mid);

    m_body = new QWidget(this);
    m_bodyLayout = new QVBoxLayout(m_body);
    m_bodyLayout->setContentsMargins(0, 2, 0, 10);
    m_bodyLayout->setSpacing(8);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(rule);
    layout->addWidget(m_header);
    layout->addWidget(m_body);

    bool open = viewState().value(stateKey(m_key), openByDefault).toBool();
    m_header->setChecked(open);
    showOpen(open);
    connect(m_header, &QToolButton::toggled, this, [this](bool checked) {
        showOpen(checked);
        viewState().setValue(stateKey(m_key), checked);
    });
}

void InspectorSection::addWidget(QWidget* widget) { m_bodyLayout->addWidget(widget); }

bool InspectorSection::isOpen() const { return m_header->isChecked(); }

void InspectorSection::setOpen(bool open) { m_header->setChecked(open); }

void InspectorSection::showOpen(bool open) {
    m_header->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
    m_body->setVisible(open);
}

}  // namespace quillo::views
