#pragma once

#include "platform/portico/WebPage.h"

namespace Portico {

/// A page that forwards to a member function of an object, which outlives the server.
template <typename T>
class WebPageObject : public WebPage {
public:
    using SimpleHandler = bool (T::*)(const ProtocolHTTP::Request&, ProtocolHTTP::Reply&);
    using ClientHandler = RequestResult (T::*)(WebClient*, const ProtocolHTTP::Request&,
                                               ProtocolHTTP::Reply&);

    WebPageObject(T* target, SimpleHandler handler) : object(target), simpleHandler(handler) {}
    WebPageObject(T* target, ClientHandler handler) : object(target), clientHandler(handler) {}

    using WebPage::create;

    RequestResult create(WebClient* client, const ProtocolHTTP::Request& request,
                         ProtocolHTTP::Reply& reply) override {
        if (simpleHandler)
            return (object->*simpleHandler)(request, reply) ? 1 : 0;
        return (object->*clientHandler)(client, request, reply);
    }

    WebPage* clone() const override { return new WebPageObject(*this); }

private:
    T* object;
    SimpleHandler simpleHandler = nullptr;
    ClientHandler clientHandler = nullptr;
};

} // namespace Portico
