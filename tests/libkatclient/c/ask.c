/* A C program as its author writes it: asks for the URLs behind the socket's path. */
#include <katclient.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    katclient *client = NULL;
    const size_t count = argc < 2 ? 0 : (size_t)argc - 2;
    katclient_answer *answers = calloc(count + 1, sizeof *answers);
    size_t i;
    int status = argc < 2 || answers == NULL ? KATCLIENT_BAD_ARGUMENT : katclient_open(argv[1], &client);
    if (status == KATCLIENT_OK) {
        katclient_set_limits(client, 1000, 30000);
        status = katclient_ask_many(client, (const char *const *)argv + 2, NULL, count, KATCLIENT_RETRY, answers);
        printf("version %s status %d message [%s]\n", katclient_version(), status, katclient_message(client));
    }
    for (i = 0; i < count; ++i)
        printf("%s status %d known %d count %u first %d\n", argv[i + 2], answers[i].status, answers[i].known,
               answers[i].count, answers[i].count == 0 ? -1 : (int)answers[i].categories[0]);
    katclient_close(client);
    free(answers);
    return status;
}
