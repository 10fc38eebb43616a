#include "dev/simulate/Scheduler.h"

#include <algorithm>
#include <cstring>
#include <cxxabi.h>
#include <utility>

#include <ucontext.h>

namespace velarix::simulate
{

namespace
{

constexpr std::size_t kStack = 128 * 1024;

std::jmp_buf g_main;
std::vector<char*> g_stacks; ///< not in use

char* takeStack()
{
	if (g_stacks.empty())
	{
		return new char[kStack];
	}
	char* stack = g_stacks.back();
	g_stacks.pop_back();
	return stack;
}

/// Exceptions in flight are the thread's own: each task has to find its own again.
void swapExceptions(Task& task)
{
	std::array<void*, 2> others{};
	void* globals = abi::__cxa_get_globals();
	std::memcpy(others.data(), globals, sizeof others);
	std::memcpy(globals, task.exceptions.data(), sizeof others);
	task.exceptions = others;
}

} // namespace

std::uint64_t Random::next()
{
	m_state += 0x9e3779b97f4a7c15U;
	std::uint64_t mixed = m_state;
	mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
	mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
	return mixed ^ (mixed >> 31U);
}

Scheduler::~Scheduler()
{
	// The latest first: a thread ends before the object that it belongs to.
	for (auto task = m_tasks.rbegin(); task != m_tasks.rend(); ++task)
	{
		kill(**task);
		resume(**task);
	}
}

void Scheduler::push(Micros moment, Event event)
{
	event.key = (moment << kOrderBits) + ++m_order;
	m_events.push_back(event);
	std::push_heap(m_events.begin(), m_events.end(), IsLater());
}

void Scheduler::at(Micros moment, std::function<void()> call)
{
	if (m_free.empty())
	{
		m_free.push_back(static_cast<std::uint32_t>(m_calls.size()));
		m_calls.emplace_back();
	}
	const std::uint32_t place = m_free.back();
	m_free.pop_back();
	m_calls[place] = std::move(call);
	push(std::max(moment, m_now), {0, nullptr, place});
}

Task& Scheduler::spawn(Process& process, std::function<void()> body)
{
	Task& task = *m_tasks.emplace_back(std::make_unique<Task>());
	task.process = &process;
	task.body = std::move(body);
	wakeAt(task, m_now);
	return task;
}

void Scheduler::wakeAt(Task& task, Micros moment)
{
	moment = std::max(moment, m_now);
	if (moment < task.wakesAt)
	{
		task.wakesAt = moment;
		push(moment, {0, &task, task.turn});
	}
}

void Scheduler::pause(Micros moment)
{
	Task& task = *s_current;
	if (!task.dying)
	{
		if (moment != kNoTime)
		{
			wakeAt(task, moment);
		}
		if (_setjmp(task.place) == 0)
		{
			_longjmp(g_main, 1);
		}
	}
	if (task.dying)
	{
		throw Killed{};
	}
}

void Scheduler::kill(Task& task)
{
	task.dying = true;
	wakeAt(task, m_now);
}

void Scheduler::catchUp(Task& task)
{
	if (std::exchange(task.missed, false))
	{
		wakeAt(task, m_now);
	}
}

void Scheduler::begin()
{
	try
	{
		s_current->body();
	}
	catch (const Killed&)
	{
		// Its process has ended.
	}
	s_current->body = nullptr;
	s_current->finished = true;
	_longjmp(g_main, 1);
}

void Scheduler::resume(Task& task)
{
	if (task.finished || (task.dying && !task.started))
	{
		task.finished = true;
		return;
	}
	++task.turn;
	task.wakesAt = kNoTime;
	s_current = &task;
	m_hooks.enter(task);
	swapExceptions(task);
	if (_setjmp(g_main) == 0)
	{
		if (std::exchange(task.started, true))
		{
			_longjmp(task.place, 1);
		}
		task.stack = takeStack();
		ucontext_t context{};
		::getcontext(&context);
		context.uc_stack.ss_sp = task.stack;
		context.uc_stack.ss_size = kStack;
		::makecontext(&context, &Scheduler::begin, 0);
		::setcontext(&context);
	}
	Task& ran = *s_current;
	s_current = nullptr;
	swapExceptions(ran);
	m_hooks.leave(ran);
	if (ran.finished)
	{
		g_stacks.push_back(std::exchange(ran.stack, nullptr));
	}
}

void Scheduler::call(std::uint32_t index)
{
	const std::function<void()> call = std::exchange(m_calls[index], nullptr);
	m_free.push_back(index);
	call();
}

bool Scheduler::take(const Event& event)
{
	if (event.task == nullptr)
	{
		call(event.index);
		return true;
	}
	Task& task = *event.task;
	if (event.index != task.turn || task.finished)
	{
		return false;
	}
	if (!task.dying && !m_hooks.mayRun(task))
	{
		task.missed = true;
		task.wakesAt = kNoTime;
		return false;
	}
	resume(task);
	return true;
}

void Scheduler::run(Micros moment)
{
	while (!m_stopped && !m_events.empty() && m_events.front().key >> kOrderBits <= moment)
	{
		std::pop_heap(m_events.begin(), m_events.end(), IsLater());
		const Event event = m_events.back();
		m_events.pop_back();
		m_now = event.key >> kOrderBits;
		if (take(event))
		{
			m_hooks.afterEvent();
		}
	}
}

} // namespace velarix::simulate
