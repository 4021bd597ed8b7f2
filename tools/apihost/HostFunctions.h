#pragma once

class LN_ApiRequestEngine;

/// The API host's functions: small, predictable functions that exercise every path of the
/// request protocol, for clients and for the project's end-to-end tests.
namespace HostFunctions {

void registerAll(LN_ApiRequestEngine & engine);

} // namespace HostFunctions
