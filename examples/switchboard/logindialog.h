#pragma once

#include "loginsettings.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSpinBox;

/// Server, port, user, password, mode and the TLS choice, filled with
/// `initial`.
class LoginDialog : public QDialog
{
    Q_OBJECT
public:
    explicit LoginDialog(const LoginSettings& initial, QWidget* parent = nullptr);

    LoginSettings settings() const;

private:
    QLineEdit* m_host;
    QSpinBox* m_port;
    QLineEdit* m_user;
    QLineEdit* m_password;
    QComboBox* m_mode;
    QCheckBox* m_verifyTls;
};
