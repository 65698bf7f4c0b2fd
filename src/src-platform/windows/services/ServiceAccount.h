#pragma once

#include <sys/types.h>

#include <string>

#include "exceptions/Exception.h"

namespace windows::services {

class ServiceAccountException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// The user that a service runs as.
class ServiceAccount {
public:
    // The owner of a file or folder. Throws ServiceAccountException if there is none.
    static ServiceAccount ownerOf(const std::string& path);

    // The user as the manager takes it: the name, or the number of one without a name; empty for the
    // superuser.
    std::string name() const;

    // Makes the user the owner of what stands under the path. Left as they are: what isn't there, a symbolic
    // link, and a file that has further names, because the path may lie in a folder of that user, who could
    // have led it to somebody else's file. Throws ServiceAccountException if the system refuses.
    void takeOver(const std::string& path) const;

private:
    ServiceAccount(uid_t user, gid_t group) : _user(user), _group(group) {}

    const uid_t _user;
    const gid_t _group;
};

}  // namespace windows::services
