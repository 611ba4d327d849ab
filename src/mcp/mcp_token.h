// The application's token as the bridge sends it in "Authorization: Bearer <token>". The token
// comes from the environment, where a copy and paste may have left blanks or a line end around
// it; a control character inside it would end the header line and start another, so a token
// that holds one is never sent.
#pragma once

#include <string>
#include <string_view>

namespace tallowbrook::McpBridge {

// `raw` without the blanks, tabs, carriage returns and line feeds around it; empty (the header
// is then the bare "Bearer ", which the application refuses with its token message) when what
// is left holds a byte below 0x20 or 0x7F. Pure; any thread.
std::string bearerToken(std::string_view raw);

}  // namespace tallowbrook::McpBridge
