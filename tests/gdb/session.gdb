set width 0
break stop_here
run
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
set print elements 4
print *group
echo \n-- damaged --\n
set print pretty off
print *damaged_entry
print *damaged_group
print *damaged_lists
print *looped_lists
print *no_request
print *damaged_header
print *garbage
print *not_a_group
print *wild
print *none
