// interface.h: what a service understands, as a value that can be looked at and compared.
#pragma once

#include <string_view>
#include <vector>

#include "platform/ipc/method.h"
#include "platform/ipc/wire_objects.h"
#include "platform/ipc/wire_types.h"

namespace ksw::ipc {

/// One method of an interface. The classes of a reply's argument are those that the method allows, by the names
/// "error", "dictionary", "array", "string", "value" (numbers and bools), "byte data", "date", "URL", "UUID" and
/// those of archivable classes.
struct InterfaceMethod {
    int number = 0;
    std::string_view selector;
    std::vector<TypeFacts> arguments;
    std::vector<TypeFacts> reply;

    friend bool operator==(const InterfaceMethod&, const InterfaceMethod&) = default;
};

/// A named list of methods. A value; its texts are static.
struct ServiceInterface {
    std::string_view name;
    std::vector<InterfaceMethod> methods;

    /// The method with this selector; null when there is none.
    const InterfaceMethod* find(std::string_view selector) const {
        for (const InterfaceMethod& method : methods) {
            if (method.selector == selector) {
                return &method;
            }
        }
        return nullptr;
    }

    friend bool operator==(const ServiceInterface&, const ServiceInterface&) = default;
};

/// A row as an interface shows it.
template <class... R, class... A>
InterfaceMethod describeMethod(const Method<Reply<R...>(A...)>& method) {
    InterfaceMethod described{method.number, method.selector, {WireType<A>::facts()...}, {WireType<R>::facts()...}};
    for (const ReplyClasses& allowed : method.replyClasses) {
        described.reply.at(allowed.argument).classes.assign(allowed.classes.begin(), allowed.classes.end());
    }
    return described;
}

/// The interface made of these rows, in their order.
template <class... Methods>
ServiceInterface makeInterface(std::string_view name, const Methods&... methods) {
    return {name, {describeMethod(methods)...}};
}

}  // namespace ksw::ipc
