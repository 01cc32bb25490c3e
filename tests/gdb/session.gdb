set width 0
start
break exit
continue
echo ---\n
print *entry
print *older
print *unknown
print *message
print *group
print *tag
print *watch
print *request
print *header
print entry == older
set print pretty on
print *grants
print *lists
set print elements 2
print *group
set print elements 4
echo \n-- damaged --\n
set print pretty off
set {void*}((char*)entry + 24) = (void*)0x1234
# ace_name has a length and no storage.
set {unsigned}((char*)entry + 16) = 0xffffffff
set {char}((char*)entry + 9) = 1
print *entry
set {unsigned}((char*)group + 16) = 0xffffffff
print *group
# The first element's next one is itself.
set {void*}(*(char**)((char*)lists + 24) + 48) = *(void**)((char*)lists + 24)
print *lists
set {void*}((char*)lists + 24) = (void*)0x1234
print *lists
set {unsigned}((char*)request + 12) = 0xffffffff
print *request
set {long}older = 0x5a5a5a5a5a5a5a5a
set {long}((char*)older + 8) = 0x5a5a5a5a5a5a5a5a
set var header = (zur_instance*)older
print *header
print *older
set var group = (void*)tag
print *group
set var tag = (void*)0x1234
print *tag
set var tag = 0
print *tag
set print asm-demangle on
# The library believes what the platform declares plain.
echo \n-- declared --\n
output/a (long)'epm::plain::idle_hook'
echo \n
