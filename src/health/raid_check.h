#pragma once

/* Checks the array of the system volume and the health of the disks, and sends a
 * warning to the notification centre if the array's status is 0 or below while the
 * last disk predicts its failure. Failures go to the volume log. */
void do_raid_check();
