#include "Context.h"

namespace halvern::morvane::client {

const Settings& Context::settings() {
    if (!_settings) {
        _settings = readSettings(_options, _world.environment);
    }
    return *_settings;
}

Exchange& Context::exchange() {
    if (!_exchange) {
        _exchange = newExchange();
    }
    return *_exchange;
}

}  // namespace halvern::morvane::client
