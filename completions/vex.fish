# fish completion for vex(1)

set -l commands keygen seal open info digest index uid id ini size sort passwd passwd-store os walk http registry cloud net

complete -c vex -f
complete -c vex -l ini -r -F -d 'Configuration of the log'
complete -c vex -n "not __fish_seen_subcommand_from $commands" -l help -d 'Print the usage'
complete -c vex -n "not __fish_seen_subcommand_from $commands" -l version -d 'Print the version'
complete -c vex -n "not __fish_seen_subcommand_from $commands" -l features -d 'Print versions and build'
complete -c vex -n "not __fish_seen_subcommand_from $commands" -l os-test -d 'Print a summary of the system'
complete -c vex -n "not __fish_seen_subcommand_from $commands" -l copyrights -d 'Print the copyright notices'
complete -c vex -n "not __fish_seen_subcommand_from $commands" -l noversioncheck -d 'Do not compare versions'

function __vex_command -a name description
    complete -c vex -n "not __fish_seen_subcommand_from $argv[3..]" -a $name -d $description
end
__vex_command keygen 'Make a random key' $commands
__vex_command seal 'Compress and encrypt a file' $commands
__vex_command open 'Get back what was sealed' $commands
__vex_command info 'Describe sealed files without a key' $commands
__vex_command digest 'Print or check digests' $commands
__vex_command index 'Load digests into an index and tell its figures' $commands
__vex_command uid 'Draw unique identifiers' $commands
__vex_command id 'Read, step or store the counter of an Id file' $commands
__vex_command ini 'Read or change a configuration file' $commands
__vex_command size 'Read sizes such as 10GiB' $commands
__vex_command sort 'Sort lines or records' $commands
__vex_command passwd 'Make a password unreadable, or readable' $commands
__vex_command passwd-store 'Make a key store, or give it a new current key' $commands
__vex_command os 'Describe the machine' $commands
__vex_command walk 'List what is below a directory' $commands
__vex_command http 'Make one request to a server' $commands
__vex_command registry 'Read or change names and values in an SQLite file' $commands
__vex_command cloud 'Read or change the cache in front of cloud storage' $commands
__vex_command net 'Try resolver, connections, networks, interfaces and routes' $commands
functions -e __vex_command

# the first operand of commands that have actions
function __vex_needs_action -a command
    set -l words (commandline -opc)
    test "$words[-1]" = $command
end
complete -c vex -n '__vex_needs_action id' -a 'show next write'
complete -c vex -n '__vex_needs_action ini' -a 'get set list delete'
complete -c vex -n '__vex_needs_action passwd' -a 'encode decode encrypt decrypt'
complete -c vex -n '__vex_needs_action passwd-store' -a 'init rotate'
complete -c vex -n '__vex_needs_action http' -a 'get put post head delete'
complete -c vex -n '__vex_needs_action registry' -a 'get set list'
complete -c vex -n '__vex_needs_action cloud' -a 'show enable disable cache-size'
complete -c vex -n '__vex_needs_action net' -a 'resolve connect listen local range routes'
complete -c vex -n '__vex_needs_action routes' -a 'add delete'

complete -c vex -n '__fish_seen_subcommand_from keygen seal open info digest index sort' -F
for command in id ini passwd-store registry http
    complete -c vex -n "__fish_seen_subcommand_from $command; and not __vex_needs_action $command" -F
end
complete -c vex -n '__fish_seen_subcommand_from walk' -a '(__fish_complete_directories)'

function __vex_option -a commands
    complete -c vex -n "__fish_seen_subcommand_from $commands" $argv[2..]
end
__vex_option 'seal open' -l key-file -r -F -d 'File with the key'
__vex_option 'seal open' -l cipher -x -a 'blowfish aes-256-cfb aes-256-ofb aes-256-ctr'
__vex_option seal -l compress -x -a 'lzo deflate none'
__vex_option seal -l no-encrypt -d 'Only compress'
__vex_option seal -l level -x -d 'How hard to compress'
__vex_option seal -l window -x -d 'Block size as a power of two'
__vex_option 'info digest index uid size os walk' -l json -d 'Print JSON'
__vex_option digest -l md5 -d 'MD5 instead of SHA-512/256'
__vex_option digest -l check -r -F -d 'Check the digests of a list'
__vex_option index -l files -d 'Digest the files named'
__vex_option index -l bits -x -d 'Buckets as a power of two'
__vex_option uid -s n -x -d 'How many'
__vex_option sort -l record -x -d 'Size of a record'
__vex_option sort -l key -x -d 'Place of the key, OFF:LEN'
__vex_option sort -l unique -d 'Keep the first of equal ones'
__vex_option sort -l memory -x -d 'Memory to use'
__vex_option sort -l merge -x -d 'Runs to merge at a time'
__vex_option sort -l temp -x -a '(__fish_complete_directories)' -d 'Directory of temporary files'
__vex_option passwd -l key-file -r -F -d 'Key store'
__vex_option walk -l type -x -a 'f d l o' -d 'Only these kinds'
__vex_option walk -l name -x -d 'Shell pattern of the name'
__vex_option walk -l larger -x -d 'Only larger files'
__vex_option walk -l depth -x -d 'Levels to go down'
__vex_option walk -l same-device -d 'Stay on the file system'
__vex_option walk -l follow -d 'Follow symbolic links'
__vex_option walk -l delay -x -d 'Milliseconds between entries'
__vex_option walk -l sorted -d 'In the order of names'
__vex_option walk -l stat -d 'With mode, size and time'
__vex_option walk -l null -d 'End paths with NUL'
__vex_option http -l ca-file -r -F -d 'Trusted certificates'
__vex_option http -l cert -r -F -d "Client's certificate"
__vex_option http -l key -r -F -d 'Key of the certificate'
__vex_option http -l proxy -x -d 'Proxy'
__vex_option http -l header -x -d 'One header more'
__vex_option http -l content-type -x -d 'Type of what is sent'
__vex_option http -l timeout -x -d 'Seconds'
__vex_option http -l retries -x -d 'Times to try again'
__vex_option http -l digest -d 'Print the digest of the data'
functions -e __vex_option
