#include "Programs.h"

#include <exception>

#include <sysexits.h>

#include "AddressHolder.h"
#include "Guard.h"
#include "Journal.h"
#include "Process.h"
#include "ServiceSupervisor.h"

namespace velarix::keeper::programs
{

namespace
{

/// The guard sees to what is left when a worker fails, and to the report when it does not start.
int reported(const std::string& program, const std::function<int()>& work)
{
	try
	{
		return work();
	}
	catch (const std::exception& exc)
	{
		Journal(program).event("failed", exc.what());
		return EX_SOFTWARE;
	}
}

} // namespace

int runAddress(const Settings& settings)
{
	beInTime();
	const auto worker = [&] { return AddressHolder(settings.address).run(); };
	const auto aftermath = [&]
	{
		Netlink netlink;
		removeAddress(netlink, settings.address);
	};
	return reported(kAddressProgram,
	                [&]
	                {
		                return guard(
		                    kAddressProgram, [&] { return reported(kAddressProgram, worker); }, aftermath);
	                });
}

int runService(const ServiceSettings& service)
{
	const auto worker = [&] { return ServiceSupervisor(service).run(); };
	// A unit is nobody's child here.
	const auto aftermath = [&] { endRemains(service.program, &service); };
	return reported(service.program,
	                [&]
	                {
		                return guard(
		                    service.program, [&] { return reported(service.program, worker); }, aftermath);
	                });
}

} // namespace velarix::keeper::programs
