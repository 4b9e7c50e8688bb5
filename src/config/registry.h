// The product's registry: the ini file that tells programs where to find each other's files.
#ifndef VEX_CONFIG_REGISTRY_H
#define VEX_CONFIG_REGISTRY_H

namespace vex::config {

/// "/etc/zqregistry.cfg", or what the environment variable ZQREGISTRY names; valid until the
/// environment changes.
const char *registryPath();

}  // namespace vex::config

#endif
