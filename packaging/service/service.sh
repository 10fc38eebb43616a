#!/bin/sh
# What the systemd unit and the init script have in common: how the agent is
# started, stopped and found. Installed as /usr/libexec/velarix-ha/service.
#
#   service prepare   before a start: nothing runs, nothing stale is left, the
#                     settings are right, log and pid file can be written
#   service launch    for the unit, which has prepared: starts the agent with the
#                     unit's streams, and waits until its pid file is there
#   service start     prepares, starts, and waits until the agent is at work
#   service stop      ends the agent; VELARIX_ON_STOP says what becomes of the
#                     address and the programs
#   service status    says whether the agent runs
#
# The exit statuses are those of the Linux Standard Base for init scripts, and
# 78 for settings that the agent cannot work with. All but the status is printed
# on standard error: systemd discards standard output.
set -eu

# Whoever calls: a pid file that everybody may write could name any process to
# systemd, and a relative LOG.PATH counts from here.
umask 022
cd /

agent=/usr/velarix/bin/VelarixHA
settings=/usr/velarix/bin/ini/config.ini
pid_file=/usr/velarix/pid/VelarixHA.pid
console=/usr/velarix/log/console.err
defaults=/etc/default/velarix-ha
release=/usr/libexec/velarix-ha/release
keeper=/usr/libexec/velarix-ha/keeper
keeper_settings=/usr/velarix/bin/ini/keeper.ini
keeper_programs=/usr/velarix/run
maintenance=/usr/velarix/pid/maintenance

# The pid file comes two seconds after the parent has gone.
pid_file_within=15
# At boot an interface, its address, a mounted program or the tunnel may come late.
interfaces_within=30
# After the pid file the address is dropped and the programs are killed before the threads start.
threads_within=15
end_within=10
# Longer than a start takes.
other_start_within=120

not_running=3
failed=1
wrong_settings=78

# Copies the standard input to standard error without what a terminal obeys: settings and
# programs say what they like.
say_text() {
	LC_ALL=C tr -d '\000-\010\013-\037\177' | LC_ALL=C sed 's/\xc2[\x80-\x9f]//g' >&2
}

say() {
	printf 'velarix-ha: %s\n' "$*" | say_text
}

# is_agent PID: a process of this PID namespace that root runs our program in, which
# may have been replaced on the disk since (an upgrade). A pid file outlives its
# agent, and its number may belong to anything by now. Everybody may run the
# program; the owner of /proc/PID can be root's for a user's process, too.
is_agent() {
	case $(readlink "/proc/$1/exe" 2>/dev/null) in
	"$agent" | "$agent (deleted)") ;;
	*) return 1 ;;
	esac
	[ "$(readlink "/proc/$1/ns/pid")" = "$(readlink /proc/self/ns/pid)" ] &&
		[ "$(sed -n 's/^Uid:[[:space:]]*\([0-9]*\).*/\1/p' "/proc/$1/status" 2>/dev/null)" = 0 ]
}

# Prints the agent's pid. In its first two seconds it has no pid file.
find_agent() {
	pid=
	if [ -f "$pid_file" ] && [ -r "$pid_file" ]; then
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

# Sets uptime, in seconds. Unlike the time of day it is never set.
read_uptime() {
	read -r uptime _ </proc/uptime
	uptime=${uptime%.*}
}

# within SECONDS COMMAND...: tries five times a second, as far as the command lets it,
# until it succeeds.
within() {
	read_uptime
	end=$((uptime + $1))
	shift
	while ! "$@"; do
		read_uptime
		[ "$uptime" -le "$end" ] || return 1
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
	within 5 [ ! -e "$pid_file" ] || true
	if is_agent "$1" && [ ! -e "$pid_file" ]; then
		write_pid_file "$1"
	fi
}

at_boot() {
	if [ -d /run/systemd/system ]; then
		case $(systemctl is-system-running 2>/dev/null) in
		initializing | starting) return 0 ;;
		esac
		return 1
	fi
	read_uptime
	[ "$uptime" -lt 300 ]
}

# Or hopeless: what is wrong with the settings themselves stays wrong. A tunnel that is down and
# has worked may be waited for; it is no reason not to start, since anybody on eth1 answers beside it.
accepted() {
	if found=$(velarixctl check "$settings" 2>&1); then
		case $found in *'[tunnel-down]'*) return 1 ;; esac
	elif velarixctl check --files-only "$settings" >/dev/null 2>&1; then
		return 1
	fi
}

# Prints LOG.PATH as the agent reads it: names in any case, the last one counts. Prints
# nothing where it is put together from other keys.
log_path() {
	awk '
		function trimmed(text) {
			gsub(/^[[:space:]]+|[[:space:]]+$/, "", text)
			return text
		}
		{ line = trimmed($0) }
		line ~ /^\[[^]]*\]/ {
			section = trimmed(substr(line, 2, index(line, "]") - 2)) "."
			line = trimmed(substr(line, index(line, "]") + 1))
		}
		line !~ /^;/ && (at = index(line, "=")) {
			key = trimmed(substr(line, 1, at - 1))
			if (tolower((section == "." ? "" : section) key) == "log.path") {
				path = trimmed(substr(line, at + 1))
			}
		}
		END {
			if (!index(path, "${")) {
				print path
			}
		}
	' "$settings"
}

# Without a line feed, as the agent writes it.
write_pid_file() {
	printf '%s' "$1" >"$pid_file"
}

refuse_what_is_no_log_file() {
	log=$(log_path)
	if [ -e "$log" ] && [ ! -f "$log" ]; then
		say "not started: LOG.PATH, $log, is no regular file: the agent would wait for ever for its end, or fill it"
		exit "$wrong_settings"
	fi
}

refuse_without_room_for_pid_file() {
	# Nobody takes blanks for a process.
	why=$(write_pid_file '       ' 2>&1) || {
		say "not started: the agent would be without a pid file: $why"
		rm -f "$pid_file"
		exit "$failed"
	}
	rm -f "$pid_file"
}

# The log's age counts from its first line, that of its archives from their last change. Begun
# while the clock was ahead, neither is archived or removed before that date comes. The
# new name is that of any archive: velarixctl reads it, and it goes with them.
archive_log_of_the_future() {
	if [ ! -f "$log" ]; then
		return 0
	fi
	begun=$(head -c 128 "$log" | sed -n '1s,^# Log file created/rotated ,,p')
	now=$(date +%s)
	if [ -n "$begun" ] && seconds=$(date -d "$begun" +%s 2>/dev/null) && [ "$seconds" -gt $((now + 3600)) ]; then
		archive=$log.$(date -u -d "@$now" +%Y%m%d%H%M%S)000
		if mv "$log" "$archive"; then
			say "$log was begun while the clock was ahead ($begun): it is now $archive"
		else
			say "$log was begun while the clock was ahead ($begun) and will not be archived before that date"
		fi
	fi
	find "$(dirname "$log")/" -maxdepth 1 -type f -name "$(basename "$log").[0-9]*" -newermt '1 hour' -exec touch {} + ||
		say "archives of $log are dated in the future and will not be removed in time"
}

uses_keeper() {
	grep -q "^[^;]*=.*$keeper " "$settings"
}

# The keeper acts by the name it is called by. Made here alone, so that a service that was
# added to keeper.ini has its program at the next start.
link_programs() {
	mkdir -p "$keeper_programs"
	names=$(sed -n 's/^[[:space:]]*\[service[[:space:]]*\([a-z0-9_-]*\)[[:space:]]*\].*/\1/p' "$keeper_settings" 2>/dev/null) || true
	for name in address $names; do
		[ -x "$keeper_programs/ha-$name" ] || ln -sf "$keeper" "$keeper_programs/ha-$name"
	done
}

# By its unit where there is systemd. Goes on when the agent stops, and is not started twice.
start_reach() {
	if [ ! -d /run/systemd/system ] && grep -qs '^[[:space:]]*[[][[:space:]]*reachability[[:space:]]*[]]' "$keeper_settings"; then
		# As the unit does, but for 0 (asked to end, or there is one already) and 127 (removed).
		# shellcheck disable=SC2016
		env -i PATH="$PATH" setsid sh -c 'while "$0" reach; case $? in 0 | 78 | 127) false ;; esac; do sleep 0.1; done' "$keeper" </dev/null >/dev/null 2>>"$console" 9<&- &
	fi
}

# What failed before this start is no news after a repair.
forget_failures() {
	grep -ls '^state=failed$' /run/velarix-ha/ha-*.state | xargs -r rm -f
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
	refuse_in_maintenance
	# Left by an agent that was not stopped but died with its host: the number
	# may be another process's now, which would then be taken for the agent.
	rm -f "$pid_file"
	[ -f "$settings" ] || {
		say "there is no $settings: make it with \"velarixctl init\" or from config.ini.sample beside it"
		exit 6
	}
	refuse_what_is_no_log_file
	refuse_without_room_for_pid_file
	if uses_keeper; then
		link_programs
		forget_failures
		start_reach
	fi
	if at_boot; then
		within "$interfaces_within" accepted || true
	fi
	status=0
	velarixctl check "$settings" >&2 || status=$?
	[ "$status" = 0 ] || {
		say "not started: velarixctl check did not accept $settings (status $status)"
		exit "$status"
	}
	archive_log_of_the_future
	# With the marker the agent starts the address without its countdown.
	if uses_keeper; then
		"$keeper" mark >&2 || say "started all the same"
	fi
}

# A reboot does not end a maintenance, unless its time has passed.
refuse_in_maintenance() {
	[ -f "$maintenance" ] || return 0
	until=$(sed -n 's/^until=\([0-9][0-9]*\)$/\1/p' "$maintenance")
	if [ "${until:-0}" -gt "$(date +%s)" ]; then
		say "not started: this node is in maintenance until $(date -d "@$until"): $(sed -n 's/^reason=//p' "$maintenance"); end it with velarixctl maintenance off"
		exit "$wrong_settings"
	fi
	if [ -n "$until" ]; then
		say "the maintenance of this node was forgotten and ends with this start"
	else
		say "$maintenance is damaged and removed: nobody can tell when the maintenance of this node ends"
	fi
	rm -f "$maintenance"
}

has_pid_file() {
	[ -s "$pid_file" ]
}

has_threads() {
	[ "$(find "/proc/$1/task" -mindepth 1 -maxdepth 1 2>/dev/null | wc -l)" -ge 4 ]
}

# At work with its four threads, or dead.
has_settled() {
	! is_agent "$1" || has_threads "$1"
}

# The threads come later: where they are there, no pid will come.
has_pid_file_or_threads() {
	has_pid_file || { pid=$(find_agent) && has_threads "$pid"; }
}

has_ended() {
	! is_agent "$1"
}

end_agent() {
	# It may have ended during a handover, and its number be another process's.
	is_agent "$1" || return 0
	kill -TERM "$1" 2>/dev/null || true
	# In maintenance it is stopped, and would not hear it.
	kill -CONT "$1" 2>/dev/null || true
	within "$end_within" has_ended "$1" || {
		say "the agent (pid $1) does not end by itself and is killed"
		kill -KILL "$1" 2>/dev/null || true
		within "$end_within" has_ended "$1" || {
			say "the agent (pid $1) cannot be ended"
			return 1
		}
	}
}

# Sets pid. The agent does not look whether its pid has found room on the disk; without
# it systemd would take the start for failed and leave the agent to itself.
wait_for_pid_file() {
	within "$pid_file_within" has_pid_file_or_threads || true
	pid=$(find_agent) || return 1
	has_pid_file || write_pid_file "$pid" || {
		say "the agent (pid $pid) is ended again: there is no room for its pid in $pid_file"
		end_agent "$pid" || true
		rm -f "$pid_file"
		exit "$failed"
	}
}

launch() {
	# systemd ends this script alone when the unit is stopped before its start is complete,
	# or that takes too long.
	trap 'pid=$(find_agent) && end_agent "$pid"; exit "$failed"' TERM
	"$agent" || {
		say "$agent cannot be run"
		exit "$failed"
	}
	wait_for_pid_file || {
		say "the agent did not start; what it said stands before this line"
		exit "$failed"
	}
}

start() {
	need_root start
	# Of two at once both would find no agent and start one.
	if [ -d "${console%/*}" ]; then
		exec 9<"${console%/*}"
		flock -w "$other_start_within" 9 || {
			say "not started: another start is at work (fuser -v ${console%/*} shows it)"
			exit "$failed"
		}
	fi
	if running=$(find_agent); then
		say "runs already (pid $running)"
		return 0
	fi
	prepare
	# Its echo of the log is not wanted twice; what it prints on standard error when
	# it aborts stands nowhere else. The programs get what it gets, and nothing of
	# the terminal that this was typed on.
	env -i PATH="$PATH" LANG="${LANG:-C}" setsid "$agent" </dev/null >/dev/null 2>>"$console" 9<&- || {
		say "$agent cannot be run, or $console not be written"
		exit "$failed"
	}
	if wait_for_pid_file; then
		within "$threads_within" has_settled "$pid" ||
			say "the agent (pid $pid) runs, and its threads do not yet: does a command of the settings take so long?"
		if is_agent "$pid"; then
			return 0
		fi
	fi
	say "the agent did not start; its last words in $console:"
	tail -n 3 "$console" | say_text
	exit "$failed"
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
	handover)
		# Both nodes keep running meanwhile: the agent gives the service up and asks its
		# partner, by heartbeat, to take over.
		velarixctl switchover --timeout "${VELARIX_HANDOVER_TIMEOUT:-60}" >&2 || say "nothing was handed over (see above)"
		;;
	*) say "$defaults: VELARIX_ON_STOP is \"$VELARIX_ON_STOP\" and not leave, release or handover: nothing is released" ;;
	esac
	# When the agent has ended, systemd reads the file once more, takes a living process of
	# that number for the agent, whatever it is, and ends it with the stop.
	rm -f "$pid_file"
	end_agent "$pid" || {
		write_pid_file "$pid"
		exit "$failed"
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
		has_pid_file || say "its pid file $pid_file is missing or empty"
	elif [ -e "$pid_file" ]; then
		echo "velarix-ha: dead, though $pid_file is there"
		return 1
	else
		echo "velarix-ha: does not run"
		return "$not_running"
	fi
}

case ${1:-} in
prepare | launch | start | stop | status) "$1" ;;
*)
	say "usage: $0 {prepare|launch|start|stop|status}"
	exit 2
	;;
esac
