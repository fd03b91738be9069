#pragma once
// The service's registration as the service control manager knows it.

namespace zaltor::service {

inline constexpr const char* kServiceName = "ZaltorMultiAntennaSvc";
inline constexpr const char* kDisplayName = "ZALTOR Multi Antenna Service";
inline constexpr const char* kDescription =
    "Service for management of multi antenna system. If this service is stopped, Zaltor "
    "MultiAntenna App will stop working.";

}  // namespace zaltor::service
