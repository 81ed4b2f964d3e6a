#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <string>

namespace Portico {

/// Makes the settings that all TLS connections of a server share: TLS 1.2 and later, ciphers with
/// forward secrecy alone, the server's order of them. Throws ListenError where the certificate
/// chain or the key, both PEM files, can't be used; a key with a pass phrase can't, since nobody is
/// there to be asked, nor can an RSA key below 2048 bits.
std::unique_ptr<boost::asio::ssl::context> makeTlsContext(const std::string& certFile,
                                                          const std::string& keyFile);

} // namespace Portico
