#include "callspanel.h"

#include "callsmodel.h"
#include "extensionpanel.h"
#include "libraryhop.h"
#include "telvix.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace {

QPushButton* button(const QString& text, const char* name)
{
    auto* b = new QPushButton(text);
    b->setObjectName(QLatin1String(name));
    return b;
}

} // namespace

CallsPanel::CallsPanel(Telvix* client, ExtensionPanel* colleagues, QWidget* parent)
    : QWidget(parent)
    , m_client(client)
    , m_colleagues(colleagues)
    , m_model(new CallsModel(this))
    , m_view(new QTableView)
    , m_number(new QLineEdit)
    , m_answer(button(tr("Answer on desk phone"), "answerButton"))
    , m_hangup(button(tr("Hang up"), "hangupButton"))
    , m_hold(button(tr("Hold"), "holdButton"))
    , m_transfer(button(tr("Transfer to selected colleague"), "transferButton"))
{
    m_view->setObjectName(QStringLiteral("callsView"));
    m_view->setModel(m_model);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setSelectionMode(QAbstractItemView::SingleSelection);
    m_view->verticalHeader()->hide();
    m_view->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_view->horizontalHeader()->setSectionResizeMode(CallsModel::CallerColumn, QHeaderView::Stretch);
    m_view->horizontalHeader()->setSectionResizeMode(CallsModel::CalleeColumn, QHeaderView::Stretch);

    m_number->setObjectName(QStringLiteral("dialNumber"));
    m_number->setPlaceholderText(tr("Number to call"));
    auto* call = button(tr("Call"), "dialButton");
    connect(call, &QPushButton::clicked, this, [this] { dial(m_number->text()); });
    connect(m_number, &QLineEdit::returnPressed, call, &QPushButton::click);

    // A new call is selected, so that its actions are one click away.
    connect(m_model, &CallsModel::rowsInserted, this,
            [this](const QModelIndex&, int first) { m_view->selectRow(first); });
    connect(m_model, &CallsModel::actionsChanged, this, &CallsPanel::updateActions);
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &CallsPanel::updateActions);
    connect(colleagues, &ExtensionPanel::selectionChanged, this, &CallsPanel::updateActions);

    // Call control at PBX level hops to the library's thread by itself.
    connect(m_hangup, &QPushButton::clicked, this, [this] {
        if (const CallsModel::Call* c = m_model->callAt(selectedRow()))
            m_client->hangupCall(c->uid, QString());
    });
    // The desk phone's commands do not hop: they are sent from the library's
    // thread through onLibraryThread(), with the line id the phone reported.
    connect(m_answer, &QPushButton::clicked, this, [this] {
        if (const CallsModel::Call* c = m_model->callAt(selectedRow()))
            onLibraryThread(m_client, [client = m_client, line = c->lineId] {
                client->phoneCommandAnswerIncomingCall(line);
            });
    });
    connect(m_hold, &QPushButton::clicked, this, [this] {
        const CallsModel::Call* c = m_model->callAt(selectedRow());
        if (!c)
            return;
        onLibraryThread(m_client, [client = m_client, line = c->lineId, held = c->held] {
            if (held)
                client->phoneCommandResumeFromHold(line);
            else
                client->phoneCommandPutOnHold(line);
        });
    });
    connect(m_transfer, &QPushButton::clicked, this, [this] {
        if (const CallsModel::Call* c = m_model->callAt(selectedRow()))
            onLibraryThread(m_client,
                            [client = m_client, line = c->lineId, to = m_colleagues->selectedExten()] {
                                client->phoneCommandUnattendedTransfer(line, to);
                            });
    });

    auto* dialRow = new QHBoxLayout;
    dialRow->addWidget(m_number, 1);
    dialRow->addWidget(call);
    auto* actions = new QHBoxLayout;
    for (QPushButton* b : {m_answer, m_hangup, m_hold, m_transfer})
        actions->addWidget(b);
    actions->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(dialRow);
    layout->addWidget(m_view);
    layout->addLayout(actions);
    updateActions();

    // Queued to the GUI thread (`this` is the context). A desktop mode raises
    // the record form of each call event once per leg; QOverload picks it
    // among the signals of the same name.
    connect(client, &Telvix::loggedToServer, this,
            [this](const LoginDetails& d) { m_model->setOwnNumber(d.exten); });
    connect(client, QOverload<IncomingCallEvent>::of(&Telvix::sigIncomingCall), m_model,
            &CallsModel::onIncoming);
    connect(client, QOverload<OriginateCallEvent>::of(&Telvix::sigOutgoingCall), m_model,
            &CallsModel::onOutgoing);
    connect(client, QOverload<AnsweredCallEvent>::of(&Telvix::sigAnsweredCall), m_model,
            &CallsModel::onAnswered);
    connect(client, QOverload<FinishedCallEvent>::of(&Telvix::sigFinishedCall), m_model,
            &CallsModel::onFinished);
    connect(client, &Telvix::sigColpUpdate, m_model, &CallsModel::onColp);
    // The desk phone reports its line: ringing or talking, then ended.
    const auto lineUp = [this](const QString&, const QString&, const QString& callId) {
        m_model->onPhoneLine(callId, true);
    };
    const auto lineDown = [this](const QString&, const QString&, const QString& callId) {
        m_model->onPhoneLine(callId, false);
    };
    connect(client, &Telvix::phoneEventIncomingCall, this, lineUp);
    connect(client, &Telvix::phoneEventOutgoingCall, this, lineUp);
    connect(client, &Telvix::phoneEventEstablishedCall, this, lineUp);
    connect(client, &Telvix::phoneEventEndedCall, this, lineDown);
    connect(client, &Telvix::phoneEventMissedCall, this, lineDown);
    connect(client, &Telvix::phoneEventHoldCall, this,
            [this](const QString&, const QString&, const QString& callId) {
                m_model->onPhoneHold(callId, true);
            });
    connect(client, &Telvix::phoneEventUnholdCall, this,
            [this](const QString&, const QString&, const QString& callId) {
                m_model->onPhoneHold(callId, false);
            });
}

void CallsPanel::dial(const QString& number)
{
    if (number.trimmed().isEmpty())
        return;
    // Queued; the call appears when the server reports it (sigOutgoingCall).
    m_client->newCall(number.trimmed(), TELVIX::NumberPrefixAuto);
    m_number->clear();
}

int CallsPanel::selectedRow() const
{
    const QModelIndexList rows = m_view->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void CallsPanel::updateActions()
{
    const CallsModel::Call* c = m_model->callAt(selectedRow());
    const bool onPhone = c && !c->lineId.isEmpty();
    const bool talking = c && c->state == CallsModel::Call::Talking;
    m_answer->setEnabled(onPhone && c->incoming && c->state == CallsModel::Call::Ringing);
    m_hangup->setEnabled(c);
    m_hold->setEnabled(onPhone && talking);
    m_hold->setText(c && c->held ? tr("Resume") : tr("Hold"));
    m_transfer->setEnabled(onPhone && talking && !m_colleagues->selectedExten().isEmpty());
}
