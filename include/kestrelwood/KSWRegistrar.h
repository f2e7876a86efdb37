// KSWRegistrar.h: the lightweight road to the management daemon for registering and asking.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/export.h>
#include <kestrelwood/service_connection.h>
#include <kestrelwood/values.h>

/// Asks the daemon's registrar service. The three operations are those of `KSWManager`, which says what the
/// parameters and answers mean; unlike the manager it asks no feature flag and always connects.
///
/// Threads: as for `KSWManager`.
class KSW_EXPORT KSWRegistrar {
public:
    /// A URL that may be absent, and a launch configuration, by the keys in KSWTypes.h.
    using OptionalURL = std::optional<ksw::URL>;
    using Configuration = std::optional<ksw::Dictionary>;

    /// The process-wide registrar, made on first use and never destroyed.
    static KSWRegistrar& shared();
    /// A registrar with a connection of its own. Nothing is dialled before the first request.
    static std::shared_ptr<KSWRegistrar> init();

    ~KSWRegistrar();
    KSWRegistrar(const KSWRegistrar&) = delete;
    KSWRegistrar& operator=(const KSWRegistrar&) = delete;

    /// The connection, owned by the registrar; never null.
    ksw::ServiceConnection* connection() const;

    /// Uids that a caller chose to keep here; the registrar itself never fills it. Not for several threads at once.
    const std::vector<ksw::Uid>& UIDs() const;
    void setUIDs(std::vector<ksw::Uid> uids);

    /// As the manager's operation of the same name; it opens no activity of its own.
    std::int64_t registerItem(std::shared_ptr<KSWItem>* item, const OptionalURL& bundleURL, std::int64_t type,
                              const OptionalURL& relativeURL, const Configuration& configuration, ksw::Uid uid);
    /// As the manager's operation of the same name.
    bool getEffectiveDisposition(ksw::DispositionPlace disposition, std::optional<ksw::Data>* LWCR,
                                 const OptionalURL& appURL, std::int64_t type, const OptionalURL& relativeURL,
                                 const Configuration& configuration, ksw::Uid uid);
    /// As the manager's operation of the same name, without its diagnostics.
    std::shared_ptr<KSWItem> fetchItemWithAppURL(const OptionalURL& appURL, std::int64_t type,
                                                 const OptionalURL& relativeURL, const Configuration& configuration,
                                                 ksw::Uid uid);

private:
    struct State;

    KSWRegistrar();

    std::unique_ptr<State> state_;
};
