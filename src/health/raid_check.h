#pragma once

/* Looks at the array of the system volume and the health of the disks, and warns
 * through the notification centre when the array is not working as it should
 * while the last disk of it expects to fail. Failures go to the volume log. */
void do_raid_check();
