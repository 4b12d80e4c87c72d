#!/usr/bin/env bash
# Does jobs, one on each line of a file, as an array of Slurm, each task of which does its share: sbatch array.sh jobs.jsonl
#
#SBATCH --job-name=clipworks
#SBATCH --array=0-9          # as many tasks as may work at once
#SBATCH --cpus-per-task=4    # as many jobs beside each other, each encoder with one thread
#SBATCH --mem=8G             # of all of them: more wait for one another; "clipworks run JOB --plan" tells what one needs
#SBATCH --time=12:00:00      # for a task's whole share
#SBATCH --requeue            # on another machine, when one is lost: what is done is skipped
set -uo pipefail

most_tries=3

# Less than Slurm gives, so that a job which needs more fails with a sentence, and the task is not killed.
memory=$((SLURM_MEM_PER_NODE * 9 / 10))MB

awk -v tasks="$SLURM_ARRAY_TASK_COUNT" -v task="$SLURM_ARRAY_TASK_ID" 'NR % tasks == task' "$1" |
  clipworks batch - --resume --jobs "$SLURM_CPUS_PER_TASK" --threads 1 --memory "$memory"
code=$?

# What may succeed later, when nothing worse has happened.
if [[ $code == 4 ]] && ((${SLURM_RESTART_COUNT:-0} + 1 < most_tries)); then
  scontrol requeue "${SLURM_ARRAY_JOB_ID}_$SLURM_ARRAY_TASK_ID"
fi
exit "$code"
