#include "logindialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

LoginDialog::LoginDialog(const LoginSettings& initial, QWidget* parent)
    : QDialog(parent)
    , m_host(new QLineEdit(initial.host))
    , m_port(new QSpinBox)
    , m_user(new QLineEdit(initial.user))
    , m_password(new QLineEdit(initial.password))
    , m_mode(new QComboBox)
    , m_verifyTls(new QCheckBox(tr("Verify the server's TLS certificate")))
{
    setWindowTitle(tr("Log in to the PBX"));
    m_port->setRange(1, 65535);
    m_port->setValue(initial.port);
    m_password->setEchoMode(QLineEdit::Password);
    // The desktop modes, shown by their wire names.
    for (TELVIX::AppMode mode :
         {TELVIX::AppModeSrntPro, TELVIX::AppModeSrntPhone, TELVIX::AppModeAtndCti, TELVIX::AppModeAtndPhone})
        m_mode->addItem(TELVIX::appModeToString(mode), int(mode));
    m_mode->setCurrentIndex(qMax(0, m_mode->findData(int(initial.mode))));
    m_verifyTls->setChecked(initial.verifyTls);

    auto* hint = new QLabel(tr("Leave it off for the bundled simulator, whose certificate is a "
                               "self-signed test one."));
    hint->setWordWrap(true);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Log in"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* form = new QFormLayout(this);
    form->addRow(tr("Server"), m_host);
    form->addRow(tr("Port"), m_port);
    form->addRow(tr("User"), m_user);
    form->addRow(tr("Password"), m_password);
    form->addRow(tr("Mode"), m_mode);
    form->addRow(m_verifyTls);
    form->addRow(hint);
    form->addRow(buttons);
}

LoginSettings LoginDialog::settings() const
{
    LoginSettings s;
    s.host = m_host->text().trimmed();
    s.port = quint16(m_port->value());
    s.user = m_user->text().trimmed();
    s.password = m_password->text();
    s.mode = TELVIX::AppMode(m_mode->currentData().toInt());
    s.verifyTls = m_verifyTls->isChecked();
    return s;
}
