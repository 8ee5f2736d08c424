#pragma once

#include <QString>

// The named words of the server protocol, declared once and shared by the
// reading and the writing code. Several constants may share one text: a name
// such as "Type" only has meaning inside its parent element.
//
// Words used by one message family only are declared beside that family
// (loginmessages.h, calleventmessages.h, ...); words shared by several
// families live here.
namespace SARNET_XML {

// Envelope
inline const QString S_XMLTAG_ROOT = QStringLiteral("SRNT");
inline const QString S_XMLTAG_API = QStringLiteral("API");
inline const QString S_XMLTAG_UUID = QStringLiteral("UUID");
inline const QString S_XMLTAG_TIMESTAMP = QStringLiteral("Timestamp");
inline const QString S_XMLTAG_REQUEST = QStringLiteral("Request");
inline const QString S_XMLTAG_RESPONSE = QStringLiteral("Response");
inline const QString S_XMLTAG_INFO = QStringLiteral("Info");
inline const QString S_XMLTAG_TOKEN = QStringLiteral("Token");
inline const QString S_XMLTAG_REQUEST_FAILED = QStringLiteral("RequestFailed");

// Server error report
inline const QString S_XMLTAG_SC_ERROR = QStringLiteral("Error");
inline const QString S_XMLTAG_SC_ERROR_REASON = QStringLiteral("Reason");
inline const QString S_XMLTAG_SC_ERROR_ORIGMSG = QStringLiteral("OriginalMessage");

// Keep-alive and acknowledgement
inline const QString S_COMMAND_KEEPALIVE = QStringLiteral("KeepAlive");
inline const QString S_COMMAND_MSGACK = QStringLiteral("MsgAck");
inline const QString S_XMLTAG_ACK_UUID = QStringLiteral("AckUUID");

// Call words shared by the call events and the call/service commands
inline const QString S_XMLTAG_CALL_UID = QStringLiteral("Uid");
inline const QString S_XMLTAG_CALL_SIP_ACCOUNT = QStringLiteral("SipAccount");
inline const QString S_XMLTAG_CALL_LOCAL_CHANNEL = QStringLiteral("LocalChannel");
inline const QString S_XMLTAG_REASON = QStringLiteral("Reason");
inline const QString S_XMLTAG_EXTEN = QStringLiteral("Exten");
// Chat identity, in the login answer and in the extension list
inline const QString S_XMLTAG_CHAT_ID = QStringLiteral("ChatID");
inline const QString S_XMLTAG_C2C_TO = QStringLiteral("ToNumber");

// Access token of the side connections, also written by the download requests
inline const QString S_XMLTAG_AUTHTOKEN_TOKEN = QStringLiteral("Token");

// Voicemail message identity, in the voicemail list and the audio download
inline const QString S_XMLTAG_VM_MESSAGE_ID = QStringLiteral("ID");
inline const QString S_XMLTAG_VM_MESSAGE_UUID = QStringLiteral("MsgID");

// Formats and fixed identifiers
inline const QString S_ISO_DATE = QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz");
inline const QString S_ID_UFWD = QStringLiteral("ufwd");

// Legacy vocabulary: no message uses these any more; they stay for
// compatibility of this header.
inline const QString LG_COMMAND_ADD_CDR = QStringLiteral("AddCdrEntry");
inline const QString LG_COMMAND_ANSWER_CALL = QStringLiteral("AnswerCall");
inline const QString LG_COMMAND_CHECKCLIENTVER = QStringLiteral("CheckClientVersion");
inline const QString LG_COMMAND_EVT_RCV = QStringLiteral("GbEventReceived");
inline const QString LG_COMMAND_GET_FAV = QStringLiteral("GetFavorites");
inline const QString LG_COMMAND_GET_SMS = QStringLiteral("GetSms");
inline const QString LG_COMMAND_GET_SMSSENDER = QStringLiteral("GetSmsSender");
inline const QString LG_COMMAND_GET_TOKEN = QStringLiteral("GetToken");
inline const QString LG_COMMAND_MAKE_CALL = QStringLiteral("MakeCall");
inline const QString LG_COMMAND_MOD_FAV = QStringLiteral("ModFavorite");
inline const QString LG_COMMAND_SEND_SMS = QStringLiteral("SendSms");
inline const QString LG_COMMAND_SET_SMSSENDER = QStringLiteral("SetSmsSender");
inline const QString LG_COMMAND_STOP_CALL = QStringLiteral("StopCall");
inline const QString LG_XMLTAG_CALL_DST = QStringLiteral("CallDestination");
inline const QString LG_XMLTAG_CLIENT_OS = QStringLiteral("COS");
inline const QString LG_XMLTAG_CLIENT_UID = QStringLiteral("CUID");
inline const QString LG_XMLTAG_CLIENT_VER = QStringLiteral("CVER");
inline const QString LG_XMLTAG_FAV_ADD = QStringLiteral("AddFavorite");
inline const QString LG_XMLTAG_FAV_DEL = QStringLiteral("DelFavorite");
inline const QString LG_XMLTAG_FAV_OPTYPE = QStringLiteral("FavOpType");
inline const QString LG_XMLTAG_FAV_ROOT = QStringLiteral("Favorites");
inline const QString LG_XMLTAG_FAV_TYPE = QStringLiteral("FavType");
inline const QString LG_XMLTAG_GB_CALLID = QStringLiteral("CallId");
inline const QString LG_XMLTAG_GB_EVENT_TYPE = QStringLiteral("GbEventType");
inline const QString LG_XMLTAG_GB_EV_FINISHED = QStringLiteral("CallFinished");
inline const QString LG_XMLTAG_GB_EV_INCOMING = QStringLiteral("IncomingCall");
inline const QString LG_XMLTAG_GB_EV_REFUSED = QStringLiteral("CallRefused");
inline const QString LG_XMLTAG_GB_EV_RINGING = QStringLiteral("Ringing");
inline const QString LG_XMLTAG_INS_DATE = QStringLiteral("InsDate");
inline const QString LG_XMLTAG_LAST_UPDATE = QStringLiteral("LastUpdate");
inline const QString LG_XMLTAG_MAC = QStringLiteral("MAC");
inline const QString LG_XMLTAG_OK_DATE = QStringLiteral("OkDate");
inline const QString LG_XMLTAG_SMSSND_DFLT = QStringLiteral("SMSSenderDefault");
inline const QString LG_XMLTAG_SMSSND_ENTRY = QStringLiteral("SMSSender");
inline const QString LG_XMLTAG_SMSSND_ID = QStringLiteral("SMSSenderId");
inline const QString LG_XMLTAG_SMSSND_LIST = QStringLiteral("SMSSenderList");
inline const QString LG_XMLTAG_SMSSND_ROOT = QStringLiteral("SMSSenders");
inline const QString LG_XMLTAG_SMSSND_TYPE = QStringLiteral("SMSSenderType");
inline const QString LG_XMLTAG_SMSSND_VALUE = QStringLiteral("SMSSenderValue");
inline const QString LG_XMLTAG_SMS_BODY = QStringLiteral("Body");
inline const QString LG_XMLTAG_SMS_DST_NAME = QStringLiteral("SmsRecipientName");
inline const QString LG_XMLTAG_SMS_DST_NUM = QStringLiteral("SmsDestination");
inline const QString LG_XMLTAG_SMS_ENTRY = QStringLiteral("SMS");
inline const QString LG_XMLTAG_SMS_ROOT = QStringLiteral("SMSList");
inline const QString LG_XMLTAG_SMS_TXT = QStringLiteral("SmsText");
inline const QString LG_XMLTAG_SND_DATE = QStringLiteral("SendDate");
inline const QString LG_XMLTAG_TOKEN = QStringLiteral("Token");

} // namespace SARNET_XML
