# Completion of brisolt for fish. Devices are asked of the command itself.

set -l commands ports term send receive chat lines monitor tap
set -l devices term send receive chat lines monitor tap
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a ports -d 'list devices'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a term -d 'terminal'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a send -d 'send a file'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a receive -d 'receive a file'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a chat -d 'expect and send'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a lines -d 'modem lines'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a monitor -d 'devices at a glance'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -f -a tap -d 'between program and device'
complete -c brisolt -n "not __fish_seen_subcommand_from $commands" -l version -d 'print the version'
complete -c brisolt -l help -d 'print help'
complete -c brisolt -n "__fish_seen_subcommand_from $devices" -a '(brisolt ports --names 2>/dev/null)'
complete -c brisolt -n "__fish_seen_subcommand_from $devices" -l baud -x -a '9600 19200 38400 57600 115200 230400 460800 921600'
complete -c brisolt -n "__fish_seen_subcommand_from $devices" -l data -x -a '5 6 7 8'
complete -c brisolt -n "__fish_seen_subcommand_from $devices" -l parity -x -a 'none odd even mark space'
complete -c brisolt -n "__fish_seen_subcommand_from $devices" -l stop -x -a '1 1.5 2'
complete -c brisolt -n "__fish_seen_subcommand_from $devices" -l flow -x -a 'none rtscts xonxoff dtrdsr'
complete -c brisolt -n '__fish_seen_subcommand_from term send receive monitor tap' -l keep -d 'wait for a device that goes away'
complete -c brisolt -n '__fish_seen_subcommand_from term send receive' -l trace -r -d 'tell every read and write'
complete -c brisolt -n '__fish_seen_subcommand_from ports' -f -l json
complete -c brisolt -n '__fish_seen_subcommand_from ports' -f -l watch
complete -c brisolt -n '__fish_seen_subcommand_from ports' -f -l names
complete -c brisolt -n '__fish_seen_subcommand_from term tap' -l hex -d 'show hex'
complete -c brisolt -n '__fish_seen_subcommand_from term chat' -l echo
complete -c brisolt -n '__fish_seen_subcommand_from term' -l timestamps -d 'times in front of lines'
complete -c brisolt -n '__fish_seen_subcommand_from term' -l eol -x -a 'cr lf crlf'
complete -c brisolt -n '__fish_seen_subcommand_from term' -l any-eol -d 'show any line end as one'
complete -c brisolt -n '__fish_seen_subcommand_from term' -l quit-key -x
complete -c brisolt -n '__fish_seen_subcommand_from term' -l log -r -d 'append what comes'
complete -c brisolt -n '__fish_seen_subcommand_from term' -l send -x
complete -c brisolt -n '__fish_seen_subcommand_from term' -l expect -x
complete -c brisolt -n '__fish_seen_subcommand_from term' -l until -x
complete -c brisolt -n '__fish_seen_subcommand_from term' -l linger -x
complete -c brisolt -n '__fish_seen_subcommand_from term send receive chat' -l timeout -x
complete -c brisolt -n '__fish_seen_subcommand_from send receive' -l protocol -x -a 'text xmodem ymodem zmodem'
complete -c brisolt -n '__fish_seen_subcommand_from send' -l add-returns
complete -c brisolt -n '__fish_seen_subcommand_from send' -l char-delay -x
complete -c brisolt -n '__fish_seen_subcommand_from send' -l line-delay -x
complete -c brisolt -n '__fish_seen_subcommand_from receive' -l quiet-ends
complete -c brisolt -n '__fish_seen_subcommand_from chat' -l file -r
complete -c brisolt -n '__fish_seen_subcommand_from chat' -l verbose
complete -c brisolt -n '__fish_seen_subcommand_from chat' -l report -r
complete -c brisolt -n '__fish_seen_subcommand_from lines' -l dtr -x -a 'on off'
complete -c brisolt -n '__fish_seen_subcommand_from lines' -l rts -x -a 'on off'
complete -c brisolt -n '__fish_seen_subcommand_from lines' -l break -x
complete -c brisolt -n '__fish_seen_subcommand_from lines' -l watch
complete -c brisolt -n '__fish_seen_subcommand_from monitor' -l json
complete -c brisolt -n '__fish_seen_subcommand_from monitor' -l seconds -x
complete -c brisolt -n '__fish_seen_subcommand_from tap' -l link -r
complete -c brisolt -n '__fish_seen_subcommand_from tap' -l quiet
complete -c brisolt -n '__fish_seen_subcommand_from tap' -l pcap -r
