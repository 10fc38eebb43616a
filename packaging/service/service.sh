#!/bin/sh
# What the systemd unit and the init script have in common: how the agent is
# started, stopped and found. Installed as /usr/libexec/velarix-ha/service.
#
#   service prepare   before a start: nothing runs, nothing stale lies about,
#                     the settings are right
#   service start     prepares, starts, and waits until the agent is at work
#   service stop      ends the agent; VELARIX_ON_STOP says what becomes of the
#                     address and the programs
#   service status    tells whether the agent runs
#
# The exit statuses are those of the Linux Standard Base for init scripts, and
# 78 for settings that "velarixctl check" does not accept. All but the status is
# said on standard error: systemd throws standard output away.
set -eu

agent=/usr/velarix/bin/VelarixHA
settings=/usr/velarix/bin/ini/config.ini
pid_file=/usr/velarix/pid/VelarixHA.pid
console=/usr/velarix/log/console.err
defaults=/etc/default/velarix-ha
release=/usr/libexec/velarix-ha/release

# The pid file comes two seconds after the parent has gone.
pid_file_within=15
# At boot a card, its address or a mounted program may come late.
cards_within=30
# After the pid file the address is dropped and the programs are killed before the threads start.
threads_within=15
end_within=10

not_running=3
failed=1

say() {
	printf 'velarix-ha: %s\n' "$*" >&2
}

# is_agent PID: a process of this PID namespace that runs our program, which may
# have been replaced on the disk since (an upgrade). A pid file outlives its
# agent, and its number may belong to anything by now.
is_agent() {
	case $(readlink "/proc/$1/exe" 2>/dev/null) in
	"$agent" | "$agent (deleted)") ;;
	*) return 1 ;;
	esac
	[ "$(readlink "/proc/$1/ns/pid")" = "$(readlink /proc/self/ns/pid)" ]
}

# Prints the agent's pid. In its first two seconds it has no pid file.
find_agent() {
	pid=
	if [ -r "$pid_file" ]; then
		# There is no line feed at the end, which read reports as a failure.
		read -r pid <"$pid_file" || true
	fi
	case $pid in
	'' | *[!0-9]*) ;;
	*)
		if is_agent "$pid"; then
			printf '%s\n' "$pid"
			return 0
		fi
		;;
	esac
	programs=$(find /proc/[0-9]*/exe -maxdepth 0 -lname "$agent*" 2>/dev/null) || true
	for program in $programs; do
		pid=${program#/proc/}
		pid=${pid%/exe}
		if is_agent "$pid"; then
			printf '%s\n' "$pid"
			return 0
		fi
	done
	return 1
}

# within SECONDS COMMAND...: tries five times a second until it succeeds.
within() {
	tries=$(($1 * 5))
	shift
	while ! "$@"; do
		tries=$((tries - 1))
		[ "$tries" -gt 0 ] || return 1
		sleep 0.2
	done
}

need_root() {
	[ "$(id -u)" = 0 ] || {
		say "root is needed to $1 the agent"
		exit 4
	}
}

# systemd removes the pid file of a start that failed, also one that is another
# agent's: with it gone, that agent would pass for dead.
restore_pid_file() {
	tries=25
	while [ -e "$pid_file" ] && [ "$tries" -gt 0 ]; do
		tries=$((tries - 1))
		sleep 0.2
	done
	if is_agent "$1" && [ ! -e "$pid_file" ]; then
		printf '%s' "$1" >"$pid_file"
	fi
}

at_boot() {
	if [ -d /run/systemd/system ]; then
		case $(systemctl is-system-running 2>/dev/null) in
		initializing | starting) return 0 ;;
		esac
		return 1
	fi
	read -r uptime _ </proc/uptime
	[ "${uptime%.*}" -lt 300 ]
}

# Or hopeless: what is wrong with the settings themselves stays wrong.
accepted() {
	velarixctl check "$settings" >/dev/null 2>&1 || ! velarixctl check --files-only "$settings" >/dev/null 2>&1
}

prepare() {
	[ -x "$agent" ] || {
		say "$agent is not installed"
		exit 5
	}
	# A second agent would kill the first one's programs and drop its address
	# before it finds the heartbeat port taken.
	if running=$(find_agent); then
		say "an agent runs already (pid $running), and not under this service: end it first"
		if [ -n "${INVOCATION_ID:-}" ]; then
			restore_pid_file "$running" &
		fi
		exit "$failed"
	fi
	# Left by an agent that was not stopped but died with its host: the number
	# may be another process's now, which would then be taken for the agent.
	rm -f "$pid_file"
	[ -f "$settings" ] || {
		say "there is no $settings: make it with \"velarixctl init\" or from config.ini.sample beside it"
		exit 6
	}
	if at_boot; then
		within "$cards_within" accepted || true
	fi
	status=0
	velarixctl check "$settings" >&2 || status=$?
	[ "$status" = 0 ] || {
		say "not started: velarixctl check did not accept $settings (status $status)"
		exit "$status"
	}
}

has_pid_file() {
	[ -s "$pid_file" ]
}

# At work with its four threads, or dead.
has_settled() {
	! is_agent "$1" || [ "$(find "/proc/$1/task" -mindepth 1 -maxdepth 1 2>/dev/null | wc -l)" -ge 4 ]
}

start() {
	need_root start
	if running=$(find_agent); then
		say "runs already (pid $running)"
		return 0
	fi
	prepare
	# What it echoes of its log is not wanted twice; what it says on standard
	# error when it aborts stands nowhere else. The programs get what it gets, and
	# nothing of the terminal that this was typed on.
	cd /
	umask 022
	env -i PATH="$PATH" LANG="${LANG:-C}" setsid "$agent" </dev/null >/dev/null 2>>"$console" || {
		say "$agent cannot be run, or $console not be written"
		exit "$failed"
	}
	if within "$pid_file_within" has_pid_file && pid=$(find_agent) &&
		within "$threads_within" has_settled "$pid" && is_agent "$pid"; then
		return 0
	fi
	say "the agent did not start; its last words in $console:"
	tail -n 3 "$console" >&2
	exit "$failed"
}

has_ended() {
	! is_agent "$1"
}

# Both nodes keep running meanwhile: the agent gives the service up and asks its
# partner, by heartbeat, to take over.
hand_over() {
	if velarixctl switchover --timeout "${VELARIX_HANDOVER_TIMEOUT:-60}" >&2; then
		return 0
	fi
	say "nothing was handed over (see above)"
	return 1
}

stop() {
	need_root stop
	VELARIX_ON_STOP=leave
	if [ -r "$defaults" ]; then
		# shellcheck source=/dev/null
		. "$defaults"
	fi
	pid=$(find_agent) || {
		say "does not run"
		return 0
	}
	case $VELARIX_ON_STOP in
	leave | release) ;;
	handover) hand_over || true ;;
	*) say "$defaults: VELARIX_ON_STOP is \"$VELARIX_ON_STOP\" and not leave, release or handover: nothing is released" ;;
	esac
	# When the agent has ended, systemd reads the file once more, takes a living process of
	# that number for the agent, whatever it is, and ends it with the stop.
	rm -f "$pid_file"
	kill -TERM "$pid" 2>/dev/null || true
	within "$end_within" has_ended "$pid" || {
		say "the agent (pid $pid) does not end by itself and is killed"
		kill -KILL "$pid" 2>/dev/null || true
		within "$end_within" has_ended "$pid" || {
			say "the agent (pid $pid) cannot be ended"
			printf '%s' "$pid" >"$pid_file"
			exit "$failed"
		}
	}
	# An agent two seconds old may have written it meanwhile.
	rm -f "$pid_file"
	# The agent must be gone: it would raise again what is dropped here.
	case $VELARIX_ON_STOP in
	release) "$release" >&2 || exit "$failed" ;;
	*) say "ended; the address and the programs of this node stay as they are" ;;
	esac
}

status() {
	if pid=$(find_agent); then
		echo "velarix-ha: runs (pid $pid)"
	elif [ -e "$pid_file" ]; then
		echo "velarix-ha: dead, though $pid_file is there"
		return 1
	else
		echo "velarix-ha: does not run"
		return "$not_running"
	fi
}

case ${1:-} in
prepare | start | stop | status) "$1" ;;
*)
	say "usage: $0 {prepare|start|stop|status}"
	exit 2
	;;
esac
