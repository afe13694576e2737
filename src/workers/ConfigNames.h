// Names that the daemon shares with the other programs of the terminal: keys of the configuration database,
// all of them text values, and names on the message bus.
#ifndef WORKERS_CONFIGNAMES_H
#define WORKERS_CONFIGNAMES_H

namespace ConfigKey {

constexpr const char* ConfigStatus = "cfg.config.status";
constexpr const char* InstalledVersion = "state.suu.currentset.version";
constexpr const char* MajorVersion = "cfg.device.configuration.major_version";
constexpr const char* MinorVersion = "cfg.device.configuration.minor_version";
constexpr const char* BuildLabel = "cfg.device.configuration.build_label";
constexpr const char* UpdateUrl = "cfg.device.configuration.sw_update_url";
constexpr const char* ForceUpdate = "cfg.device.configuration.force_sw_update";
constexpr const char* DownloadDisabled = "state.fw_download.disabled";
constexpr const char* Force = "cfg.fw_force";                       // "1": this update is forced
constexpr const char* ReadyForInstall = "cfg.fw_ready_for_install"; // path of the update image

} // namespace ConfigKey

namespace BusName {

constexpr const char* Client = "fwdownload";
constexpr const char* EventFilter = "evt";
constexpr const char* ConfigUpdated = "evt.confd.updated";
constexpr const char* ConfigPushed = "evt.confd.push";
constexpr const char* StatusEvent = "event_handler.forwardEventReport";
constexpr const char* Reboot = "request.sm.set.Reboot";

} // namespace BusName

// Identifiers of status events.
namespace CsmEvent {

constexpr unsigned UpdateReady = 0x10001;     // an update image waits for its installation
constexpr unsigned DownloadDisabled = 0xA002; // a new version is configured, downloading it is not allowed

} // namespace CsmEvent

#endif
