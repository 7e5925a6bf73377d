// A self-signed certificate for the portal's HTTPS server, made at start-up.
#pragma once

#include <string>

namespace portal {

// Writes a fresh EC P-256 key and a self-signed certificate (its own CA; names localhost,
// portal.tola.test, provision.tola.test and 127.0.0.1) as PEM files. false with why on failure.
bool MakeSelfSignedCertificate(const std::string& certPath, const std::string& keyPath, std::string& why);

}  // namespace portal
