/// The keys of keeper.ini, each with what it sets: the one table that the parser, the
/// manual and the checks use.
#pragma once

#include <span>

#include "Settings.h"

namespace velarix::keeper
{

/// Each sets one key; they return what is wrong with the value, empty for nothing.
using SetAddress = std::string (*)(AddressSettings&, std::string_view);
using SetService = std::string (*)(ServiceSettings&, std::string_view);

struct Key
{
	KeyInfo info;
	SetAddress address;
	SetService service;
};

std::span<const Key> keys();

} // namespace velarix::keeper
