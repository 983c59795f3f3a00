using UnityEngine;

namespace Game.Combat
{
    public class Projectile : MonoBehaviour
    {
        [SerializeField] private float speed = 18f;
        [SerializeField] private float lifetime = 2f;
        [SerializeField] private int damage = 10;

        private Vector3 velocity;

        public void Launch(Vector3 direction)
        {
            velocity = direction.normalized * speed;
            Destroy(gameObject, lifetime);
        }

        private void Update()
        {
            transform.position += velocity * Time.deltaTime;
        }

        private void OnTriggerEnter(Collider other)
        {
            if (other.TryGetComponent(out Enemy enemy))
            {
                enemy.TakeDamage(damage);
                Destroy(gameObject);
            }
        }
    }
}
