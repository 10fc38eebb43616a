/// Tests that a fault takes hold and is undone. All of them share one lab, without
/// agents: a test that starts one ends it.
#pragma once

#include <functional>
#include <iostream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "lab/core/Command.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

class FaultAction : public testing::Test
{
protected:
	static constexpr HostId a = HostId::a;
	static constexpr HostId b = HostId::b;
	static constexpr std::uint64_t seed = 7;
	/// For what happens at once.
	static constexpr Millis soon{10000};

	static void SetUpTestSuite()
	{
		if (const std::optional<std::string> problem = namespaceProblem())
		{
			s_problem = *problem;
			return;
		}
		requireLab();
		LabOptions options;
		options.clockShim = true;
		options.seed = seed;
		s_lab = std::make_unique<Lab>(options);
	}

	static void TearDownTestSuite() { s_lab.reset(); }

	void SetUp() override
	{
		if (!s_lab)
		{
			GTEST_SKIP() << s_problem;
		}
	}

	void TearDown() override
	{
		if (s_lab && HasFailure())
		{
			std::cout << toText(lab().timeline());
		}
	}

	static Lab& lab() { return *s_lab; }
	static Node& node(HostId id) { return lab().node(id); }

	static void inject(const std::string& kind, HostId id = a) { lab().inject({kind, id}); }
	static void repair(const std::string& kind, HostId id = a) { lab().repair({kind, id}); }

	/// Why the call is refused; empty: it is not.
	static std::string refusalOf(const std::function<void()>& call)
	{
		try
		{
			call();
			return "";
		}
		catch (const LabError& error)
		{
			return error.what();
		}
	}

	static std::string refusalOf(const std::string& kind, HostId id = a)
	{
		return refusalOf([&] { inject(kind, id); });
	}

	static CommandResult shell(HostId id, const std::string& line, Millis limit = soon)
	{
		return lab().run(id, {"sh", "-c", line}, limit);
	}

	static bool holdsAddress(HostId id)
	{
		return shell(id, "ip -4 -o addr show").output.find(plan::virtualAddress) != std::string::npos;
	}

	/// Some host answers the client's ARP requests for the address.
	static bool addressAnswers()
	{
		return lab()
		    .run(HostId::client,
		         {"arping", "-q", "-c", "1", "-w", "1", "-I", plan::serviceInterface, plan::virtualAddress})
		    .ok();
	}

	static bool programRunsOn(HostId id)
	{
		return !processesNamed(node(id).host().pid(), plan::serviceProgramName).empty();
	}

	static std::string setting(const std::string& key) { return NodeSettings::standard(a).get(key); }

private:
	static inline std::unique_ptr<Lab> s_lab;
	static inline std::string s_problem;
};

} // namespace velarix::lab
