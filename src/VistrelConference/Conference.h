#pragma once

#include "ConferenceView.h"
#include "NewCustomerFromConferenceDTO.h"

#include <Vistrel/ConferenceProperties.h>
#include <Vistrel/vistrelconference_export.h>

#include <QHash>
#include <QObject>
#include <QPointer>

#include <functional>

namespace VistrelKit {

class ApplicationConfigWrapper;
class Communication;
class OrvaneAPI;
struct ConferenceCallSettingsDTO;

/// A video call with an agent: join announces the customer (who enters the agents' queue) and
/// polls their queue position and call status; start asks for the call's settings and opens the
/// call view over the topmost window; the call's end closes it and stops the polls.
class VISTREL_CONFERENCE_EXPORT Conference : public QObject
{
    Q_OBJECT
public:
    using QueueCallback = std::function<void(int position)>;

    Conference(OrvaneAPI *orvaneAPI, ApplicationConfigWrapper *applicationConfig,
               Communication *communication, QObject *parent = nullptr);

    void join(const ConferenceProperties &properties);
    void start(ConferenceProperties properties);
    /// Keeps callback for customerId's queue positions (replacing an earlier one).
    void setQueueStatusCallback(const QString &customerId, QueueCallback callback);
    /// The call ended: closes the view (later, on the GUI thread) and stops both polls; nothing
    /// without a view.
    void conferenceTerminated();

    /// tenantId + "xovx" + customerId.
    static QString roomName(const QString &tenantId, const QString &customerId);
    /// Options of the call for these settings; nothing when the server URL is not valid.
    static std::optional<ConferenceView::Options>
    callOptions(const QString &tenantId, const ConferenceProperties &properties,
                const ConferenceCallSettingsDTO &settings);

    QString coStatusId() const { return m_coStatusId; }
    QString coQueueId() const { return m_coQueueId; }
    NewCustomerFromConferenceDTO newCustomerDTO() const { return m_newCustomerDTO; }
    ConferenceView *view() const { return m_view; }

Q_SIGNALS:
    void queuePositionChanged(const QString &customerId, int position);
    void callStarted();
    void callEnded();

private:
    void registerPolls(const QString &customerId);
    void onQueueMessage(const QString &customerId, const QString &payload);
    void removePolls();
    void open(const ConferenceView::Options &options);
    void present(QWidget *top, const ConferenceView::Options &options);

    const QString m_coStatusId;
    const QString m_coQueueId;
    OrvaneAPI *m_orvaneAPI;
    ApplicationConfigWrapper *m_applicationConfig;
    Communication *m_communication;
    NewCustomerFromConferenceDTO m_newCustomerDTO;
    QPointer<ConferenceView> m_view;
    QHash<QString, QueueCallback> m_queueStatusDict;
};

} // namespace VistrelKit
